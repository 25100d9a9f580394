#pragma once

#include "tarn/IMetricsMonitorSink.h"

#include "cvlcoreplatform/TLogEvent.h"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace tarn {

/// The sink of a monitor, which may be replaced while events are delivered to it. `Log` is called
/// by one thread at a time, `Replace` by any, from inside a sink too. There is no lock that a
/// forked child could find taken.
class SinkSlot {
public:
    explicit SinkSlot(std::unique_ptr<IMetricsMonitorSink> sink) noexcept
        : m_sink(sink.release()) {}

    ~SinkSlot();
    SinkSlot(const SinkSlot&) = delete;
    SinkSlot& operator=(const SinkSlot&) = delete;

    void Log(const TLog::Event& event);

    /// Destroys the former sink as soon as it is not called any more: before this returns, or, from
    /// inside its own call, when that call returns; until then it is called as before. Not null.
    /// The sink that is there already stays.
    void Replace(std::unique_ptr<IMetricsMonitorSink> sink);

    IMetricsMonitorSink* Get() const noexcept { return m_sink.load(std::memory_order_relaxed); }

private:
    class Use;

    bool IsCalledByThisThread() const noexcept;

    std::atomic<IMetricsMonitorSink*> m_sink;

    /// The sink that is being called, and by whom; null between calls.
    std::atomic<IMetricsMonitorSink*> m_inUse{nullptr};
    std::atomic<std::thread::id> m_user;

    /// Replaced from inside their own calls. Of the thread that calls.
    std::vector<std::unique_ptr<IMetricsMonitorSink>> m_replacedInUse;
};

}  // namespace tarn
