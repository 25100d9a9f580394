#include "export/SpanIds.h"

#include <cstdint>
#include <unordered_set>

namespace tarnview {

// A trace id is that of the tree, so it is enough that no two activities of all have the same one.
SpanIds::SpanIds(const ActivityForest& forest) : m_forest(forest) {
    std::unordered_set<tarn::otlp::SpanId> used;
    m_ids.reserve(forest.Size());
    for (ActivityForest::Index index = 0; index < forest.Size(); ++index) {
        const Activity& activity = forest[index];
        tarn::otlp::SpanId id = tarn::otlp::SpanIdOf(activity.id);
        for (std::uint64_t attempt = 0; !used.insert(id).second; ++attempt) {
            id = tarn::otlp::FurtherSpanIdOf(
                activity.id, activity.process.number, activity.begin, attempt);
        }
        m_ids.push_back(id);
    }
}

tarn::otlp::SpanIdentity SpanIds::IdentityOf(ActivityForest::Index index) const {
    const ActivityForest::Index parent = m_forest.ParentOf(index);
    return {.trace = tarn::otlp::TraceIdOf(m_forest[index].root),
            .span = m_ids[index],
            .parent = parent == ActivityForest::none ? 0 : m_ids[parent]};
}

}  // namespace tarnview
