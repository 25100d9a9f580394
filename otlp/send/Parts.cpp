#include "send/Parts.h"

#include "encode/Batch.h"

#include <vector>

namespace tarn::otlp {

void SendInParts(BatchSender& sender,
                 std::span<const EncodedSpan> spans,
                 const std::function<bool(const BatchResult&, std::uint64_t spans)>& onResult) {
    std::vector<std::span<const EncodedSpan>> parts{spans};  // the next one is the last
    BatchResult whole;                                       // of what was too large
    while (!parts.empty()) {
        const std::span<const EncodedSpan> part = parts.back();
        parts.pop_back();
        BatchResult result = sender.Send(GroupByResource(part));
        result.retries += part.size() != spans.size() ? 1U : 0U;
        result.requests += whole.requests;
        result.retries += whole.retries;
        if (result.kind == BatchResult::Kind::TooLarge && part.size() > 1) {
            whole = result;
            const std::size_t middle = part.size() / 2;
            parts.push_back(part.subspan(middle));
            parts.push_back(part.first(middle));
            continue;
        }
        whole = {};
        if (!onResult(result, part.size())) {
            return;
        }
    }
}

}  // namespace tarn::otlp
