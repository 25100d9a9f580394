#include "LastWordsSlot.h"

#include "cvlmetrics/LastWords.h"
#include "cvlmetrics/host/SaveOnCrash.h"

#include <atomic>

namespace Metrics {

namespace {

constinit std::atomic<const ILastWords*> s_lastWords{nullptr};
constinit std::atomic<void (*)() noexcept> s_before{nullptr};

}  // namespace

void SetLastWords(const ILastWords& words) noexcept {
    s_lastWords.store(&words, std::memory_order_release);
}

void WithdrawLastWords(const ILastWords& words) noexcept {
    const ILastWords* expected = &words;
    s_lastWords.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
}

void SetBeforeLastWords(void (*action)() noexcept) noexcept {
    s_before.store(action, std::memory_order_release);
}

void LastWordsSlot::CallBefore() noexcept {
    if (auto* const action = s_before.load(std::memory_order_acquire)) {
        action();
    }
}

TString LastWordsSlot::Describe(uint64 threadId, int64 time) {
    const ILastWords* const words = s_lastWords.load(std::memory_order_acquire);
    return words == nullptr ? TString() : words->DescribeOpenWork(threadId, time);
}

}  // namespace Metrics
