#include "sink/OpenReport.h"

#include "send/BlockedSignals.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace tarn::otlp {

struct OpenReport::State {
    std::mutex mutex;
    std::condition_variable ends;
    bool isOver = false;
    std::thread thread;
};

OpenReport::OpenReport(std::chrono::milliseconds interval, std::function<void()> report)
    : m_state(std::make_unique<State>()) {
    const BlockedSignals blocked;
    m_state->thread = std::thread([&state = *m_state, interval, report = std::move(report)] {
        std::unique_lock lock(state.mutex);
        while (!state.ends.wait_for(lock, interval, [&] { return state.isOver; })) {
            lock.unlock();
            try {
                report();
            } catch (...) {
                // There will be another one.
            }
            lock.lock();
        }
    });
}

OpenReport::~OpenReport() {
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->isOver = true;
        m_state->ends.notify_one();
    }
    m_state->thread.join();
}

}  // namespace tarn::otlp
