#include "SinkSlot.h"

#include <chrono>
#include <utility>

namespace tarn {

/// A call of the sink, from before it is chosen until it is done with.
class SinkSlot::Use {
public:
    explicit Use(SinkSlot& slot) noexcept
        : m_slot(slot),
          m_sink(slot.m_inUse.load(std::memory_order_relaxed)),
          m_isNested(m_sink != nullptr) {
        if (m_isNested) {
            return;
        }
        slot.m_user.store(std::this_thread::get_id(), std::memory_order_relaxed);
        // Either `Replace` sees the sink in use, or it has put another one in its place before.
        do {
            m_sink = slot.m_sink.load(std::memory_order_relaxed);
            slot.m_inUse.store(m_sink, std::memory_order_seq_cst);
        } while (slot.m_sink.load(std::memory_order_seq_cst) != m_sink);
    }

    ~Use() {
        if (m_isNested) {
            return;
        }
        m_slot.m_inUse.store(nullptr, std::memory_order_release);
        if (!m_slot.m_replacedInUse.empty()) {
            // The destructor of a sink may call the slot as well.
            const auto done = std::exchange(m_slot.m_replacedInUse, {});
        }
    }

    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    IMetricsMonitorSink& GetSink() const noexcept { return *m_sink; }

private:
    SinkSlot& m_slot;
    IMetricsMonitorSink* m_sink;
    /// A sink that hands events to the monitor itself.
    const bool m_isNested;
};

SinkSlot::~SinkSlot() {
    delete Get();
}

void SinkSlot::Log(const TLog::Event& event) {
    const Use use(*this);
    use.GetSink().Log(event);
}

// A thread that finds itself named while a sink is in use is the one that uses it: the name is
// written before the sink.
bool SinkSlot::IsCalledByThisThread() const noexcept {
    return m_inUse.load(std::memory_order_seq_cst) != nullptr &&
           m_user.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void SinkSlot::Replace(std::unique_ptr<IMetricsMonitorSink> sink) {
    if (sink.get() == Get()) {
        static_cast<void>(sink.release());
        return;
    }
    const bool isCalledByThisThread = IsCalledByThisThread();
    if (isCalledByThisThread) {
        m_replacedInUse.reserve(m_replacedInUse.size() + 1);
    }
    std::unique_ptr<IMetricsMonitorSink> former(
        m_sink.exchange(sink.release(), std::memory_order_seq_cst));
    while (m_inUse.load(std::memory_order_seq_cst) == former.get()) {
        if (isCalledByThisThread) {
            m_replacedInUse.push_back(std::move(former));
            return;
        }
        // Seldom, and rarely for longer than one event takes: no reason to let each event look for
        // somebody to wake.
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

}  // namespace tarn
