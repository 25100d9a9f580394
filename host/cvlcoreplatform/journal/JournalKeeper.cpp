#include "JournalKeeper.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <pthread.h>
#include <thread>
#include <utility>

namespace cvlcoreplatform {

namespace {

// While the library is loaded, as all that takes part in a fork. Never destroyed: the thread and
// sinks that the host has not given up use it to the last.
JournalKeeper& theKeeper = JournalKeeper::Get();

/// What is still in journals at the end of the process goes to the logs.
struct AtExit {
    AtExit() = default;
    AtExit(const AtExit&) = delete;
    AtExit& operator=(const AtExit&) = delete;

    ~AtExit() { theKeeper.RetireAll(); }
};

AtExit atExit;

/// The host's signals are not for a thread that the host does not know.
class NoSignals {
public:
    NoSignals() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }

    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t m_before{};
};

}  // namespace

JournalKeeper& JournalKeeper::Get() noexcept {
    static auto& keeper = *new JournalKeeper;
    return keeper;
}

JournalKeeper::JournalKeeper() noexcept : ForkParticipant(cvlsys::ForkRank::Sinks) {}

void JournalKeeper::Add(const std::shared_ptr<JournalledSink>& sink) {
    const std::lock_guard guard(m_mutex);
    m_sinks.push_back(sink);
}

bool JournalKeeper::HasThread() noexcept {
    if (m_hasThread.load(std::memory_order_relaxed)) {
        return true;
    }
    const std::lock_guard guard(m_mutex);
    if (m_hasThread.load(std::memory_order_relaxed)) {
        return true;
    }
    try {
        const NoSignals noSignals;
        std::thread([this] { Run(); }).detach();
        m_hasThread.store(true, std::memory_order_relaxed);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void JournalKeeper::Wake() noexcept {
    m_wakes.fetch_add(1, std::memory_order_release);
    m_wakes.notify_one();
}

JournalKeeper::Sinks JournalKeeper::TakeSinks() {
    Sinks sinks;
    const std::lock_guard guard(m_mutex);
    std::erase_if(m_sinks, [](const auto& sink) { return sink.expired(); });
    for (const auto& known : m_sinks) {
        if (auto sink = known.lock()) {
            sinks.push_back(std::move(sink));
        }
    }
    if (sinks.empty()) {
        m_sinks.clear();
    }
    return sinks;
}

bool JournalKeeper::WriteOldBlocks() {
    bool areThereBlocks = false;
    const auto now = JournalledSink::Clock::now();
    for (const auto& sink : TakeSinks()) {
        areThereBlocks = sink->WriteIfOld(now) || areThereBlocks;
    }
    return areThereBlocks;
}

void JournalKeeper::Run() noexcept {
    for (;;) {
        const uint32 wakes = m_wakes.load(std::memory_order_acquire);
        bool areThereBlocks = true;
        try {
            areThereBlocks = WriteOldBlocks();
        } catch (const std::exception&) {
            // No memory: later, perhaps. The lines are safe.
            areThereBlocks = true;
        }
        if (areThereBlocks) {
            std::this_thread::sleep_for(JournalledSink::interval);
            continue;
        }
        {
            const std::lock_guard guard(m_mutex);
            if (m_sinks.empty()) {
                m_hasThread.store(false, std::memory_order_relaxed);
                return;
            }
        }
        m_wakes.wait(wakes, std::memory_order_acquire);
    }
}

void JournalKeeper::RetireAll() noexcept {
    try {
        const auto end = ForkClock::now() + cvlsys::forkLimit;
        for (const auto& sink : TakeSinks()) {
            sink->Retire(end);
        }
    } catch (const std::exception&) {
        // No memory: the journals are for the next one who opens the logs.
        return;
    }
}

void JournalKeeper::BeforeFork(ForkClock::time_point end) noexcept {
    try {
        m_lockedToFork = TakeSinks();
    } catch (const std::exception&) {
        m_lockedToFork.clear();
    }
    for (const auto& sink : m_lockedToFork) {
        sink->BeforeFork(end);
    }
    m_mutex.lock();
    m_isLockedToFork = true;
}

void JournalKeeper::AfterForkInParent() noexcept {
    if (std::exchange(m_isLockedToFork, false)) {
        m_mutex.unlock();
    }
    for (const auto& sink : m_lockedToFork) {
        sink->AfterForkInParent();
    }
    m_lockedToFork.clear();
}

void JournalKeeper::AfterForkInChild() noexcept {
    m_hasThread.store(false, std::memory_order_relaxed);
    if (std::exchange(m_isLockedToFork, false)) {
        m_mutex.unlock();
    }
    for (const auto& sink : m_lockedToFork) {
        sink->AfterForkInChild();
    }
    m_lockedToFork.clear();
}

}  // namespace cvlcoreplatform
