#include "encode/Batch.h"

#include <algorithm>

namespace tarn::otlp {

std::vector<ResourceSpans> GroupByResource(std::span<const EncodedSpan> spans) {
    std::vector<ResourceSpans> groups;
    for (const EncodedSpan& span : spans) {
        const Resource* const resource = span.resource.get();
        // Mostly the last one.
        const auto found =
            std::find_if(groups.rbegin(), groups.rend(), [&](const ResourceSpans& group) {
                return group.resource == resource || *group.resource == *resource;
            });
        ResourceSpans& group =
            found != groups.rend() ? *found : groups.emplace_back(ResourceSpans{resource, {}});
        group.spans.push_back(span.text);
    }
    return groups;
}

}  // namespace tarn::otlp
