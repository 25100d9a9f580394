#include "send/SpanQueue.h"

#include <utility>

namespace tarn::otlp {

bool SpanQueue::Add(EncodedSpan&& span, Time now) {
    const std::size_t bytes = BytesOf(span);
    const std::size_t inUse = m_waitingBytes + m_takenBytes;
    if (Size() >= m_maxSpans || inUse >= m_maxBytes || bytes > m_maxBytes - inUse) {
        return false;
    }
    m_spans.push_back({std::move(span), now});
    m_waitingBytes += bytes;
    return true;
}

std::vector<EncodedSpan> SpanQueue::TakeBatch() {
    std::vector<EncodedSpan> batch;
    while (!m_spans.empty() && batch.size() < m_batchSpans) {
        const std::size_t bytes = BytesOf(m_spans.front().span);
        if (!batch.empty() && m_takenBytes + bytes > m_batchBytes) {
            break;
        }
        m_waitingBytes -= bytes;
        m_takenBytes += bytes;
        batch.push_back(std::move(m_spans.front().span));
        m_spans.pop_front();
    }
    m_takenSpans = batch.size();
    return batch;
}

void SpanQueue::FinishBatch() {
    m_takenSpans = 0;
    m_takenBytes = 0;
}

}  // namespace tarn::otlp
