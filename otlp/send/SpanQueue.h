#pragma once

#include "encode/LineEncoder.h"

#include "tarn/otlp/Options.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <vector>

namespace tarn::otlp {

/// Spans that wait, as many as there is room for. Those of the batch that was taken count until it
/// is done. Takes no lock.
class SpanQueue {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit SpanQueue(const Options& options)
        : m_maxSpans(options.queueSpans),
          m_maxBytes(options.queueBytes),
          m_batchSpans(options.batchSpans),
          m_batchBytes(options.batchBytes) {}

    /// False, and it stays as it is, if there is no room for it.
    bool Add(EncodedSpan&& span, Time now);

    bool HasWholeBatch() const {
        return m_spans.size() >= m_batchSpans || m_waitingBytes >= m_batchBytes;
    }

    /// Of those that no batch has taken.
    bool IsEmpty() const { return m_spans.empty(); }

    /// Since when the first of them waits.
    Time FirstTime() const { return m_spans.front().time; }

    /// At least one, and no more than a request may have.
    std::vector<EncodedSpan> TakeBatch();

    /// The batch that was taken last needs no room any more.
    void FinishBatch();

    std::size_t Size() const { return m_spans.size() + m_takenSpans; }

private:
    struct Waiting {
        EncodedSpan span;
        Time time;
    };

    static std::size_t BytesOf(const EncodedSpan& span) {
        return sizeof(Waiting) + span.text.capacity();
    }

    const std::size_t m_maxSpans;
    const std::size_t m_maxBytes;
    const std::size_t m_batchSpans;
    const std::size_t m_batchBytes;
    std::deque<Waiting> m_spans;
    std::size_t m_waitingBytes = 0;
    std::size_t m_takenSpans = 0;
    std::size_t m_takenBytes = 0;
};

}  // namespace tarn::otlp
