#include "LossReport.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlsys/host/ForkOrder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <new>
#include <string>

namespace Metrics::LossReport {

namespace {

constexpr std::size_t kinds = 4;

// In the order of `Loss`.
constexpr std::array<const char*, kinds> words{
    "scopes refused for want of room in a queue",
    "attributes refused for want of room in a queue",
    "pending context attributes refused while no scope took them",
    "events lost for want of memory or after a shutdown gave up"};

struct Counter {
    std::atomic<uint64> all{0};
    std::atomic<uint64> untold{0};
};

constinit std::array<Counter, kinds> s_counters;
constinit std::chrono::steady_clock::time_point s_nextReport{};  // of the delivering thread

using Amounts = std::array<uint64, kinds>;

// What the parent has lost, its own log tells.
[[maybe_unused]] cvlsys::InForkedChild forgetParents([] {
    for (Counter& counter : s_counters) {
        counter.all.store(0, std::memory_order_relaxed);
        counter.untold.store(0, std::memory_order_relaxed);
    }
    s_nextReport = {};
});

bool HasNews() noexcept {
    return std::any_of(s_counters.begin(), s_counters.end(), [](const Counter& counter) {
        return counter.untold.load(std::memory_order_relaxed) != 0;
    });
}

// Of several threads each tells what the others do not.
Amounts TakeNews() noexcept {
    Amounts news{};
    for (std::size_t i = 0; i < kinds; ++i) {
        news[i] = s_counters[i].untold.exchange(0, std::memory_order_relaxed);
    }
    return news;
}

void GiveBack(const Amounts& news) noexcept {
    for (std::size_t i = 0; i < kinds; ++i) {
        s_counters[i].untold.fetch_add(news[i], std::memory_order_relaxed);
    }
}

TString Text(const Amounts& news) {
    std::string text = "Missing in this log: ";
    const char* separator = "";
    for (std::size_t i = 0; i < kinds; ++i) {
        if (news[i] != 0) {
            text.append(separator).append(words[i]).append(": ").append(std::to_string(news[i]));
            separator = "; ";
        }
    }
    return TString(text);
}

}  // namespace

void Count(Loss loss) noexcept {
    Counter& counter = s_counters[static_cast<std::size_t>(loss)];
    counter.all.fetch_add(1, std::memory_order_relaxed);
    counter.untold.fetch_add(1, std::memory_order_relaxed);
}

uint64 Get(Loss loss) noexcept {
    return s_counters[static_cast<std::size_t>(loss)].all.load(std::memory_order_relaxed);
}

void Write() noexcept {
    TLog::Logger& logger = TLog::Logger::Get();
    if (!HasNews() || !logger.IsEnabled(TLog::Warn)) {
        return;
    }
    const Amounts news = TakeNews();
    try {
        if (news != Amounts{}) {
            logger.LogMessage(TLog::Warn, Text(news));
        }
    } catch (const std::bad_alloc&) {
        GiveBack(news);  // the next report will say it
    }
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
