#include "LossReport.h"

#include "cvlcoreplatform/TLogger.h"

#include <atomic>
#include <chrono>
#include <new>
#include <string>

namespace Metrics::LossReport {

namespace {

constinit std::atomic<uint64> s_refusedScopes{0};
constinit std::atomic<uint64> s_lostEvents{0};

// Of the delivering thread.
constinit uint64 s_reportedScopes = 0;
constinit uint64 s_reportedEvents = 0;
constinit std::chrono::steady_clock::time_point s_nextReport{};

bool HasNews() noexcept {
    return GetRefusedScopes() != s_reportedScopes || GetLostEvents() != s_reportedEvents;
}

}  // namespace

void CountRefusedScope() noexcept {
    s_refusedScopes.fetch_add(1, std::memory_order_relaxed);
}

void CountLostEvent() noexcept {
    s_lostEvents.fetch_add(1, std::memory_order_relaxed);
}

uint64 GetRefusedScopes() noexcept {
    return s_refusedScopes.load(std::memory_order_relaxed);
}

uint64 GetLostEvents() noexcept {
    return s_lostEvents.load(std::memory_order_relaxed);
}

void Write() noexcept {
    TLog::Logger& logger = TLog::Logger::Get();
    if (!HasNews() || !logger.IsEnabled(TLog::Warn)) {
        return;
    }
    const uint64 scopes = GetRefusedScopes();
    const uint64 events = GetLostEvents();
    try {
        logger.LogMessage(
            TLog::Warn,
            TString("Missing in this log: scopes refused for want of room in a queue: " +
                    std::to_string(scopes - s_reportedScopes) +
                    "; events lost for want of memory or after a shutdown gave up: " +
                    std::to_string(events - s_reportedEvents)));
    } catch (const std::bad_alloc&) {
        return;  // the next report will say it
    }
    s_reportedScopes = scopes;
    s_reportedEvents = events;
}

void WriteIfDue() noexcept {
    constexpr std::chrono::minutes pause{1};
    if (!HasNews()) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= s_nextReport) {
        s_nextReport = now + pause;
        Write();
    }
}

}  // namespace Metrics::LossReport
