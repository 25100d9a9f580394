#include "OpenWork.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

namespace {

using ScopeState = MetricsMonitor::ScopeState;

std::u16string NumberText(int64 number) {
    return std::u16string(TString::number(number).View());
}

/// In tenths of a millisecond, whatever the locale says of decimal points.
std::u16string TimeText(int64 nanoseconds) {
    const int64 tenths = std::max<int64>(0, nanoseconds) / 100'000;
    return NumberText(tenths / 10) + u"." + NumberText(tenths % 10) + u" ms";
}

void Append(std::u16string& text, const ScopeState& scope, uint64 threadId, int64 time) {
    if (!text.empty()) {
        text += u", ";
    }
    text += scope.name.View().substr(0, OpenWork::mostCharacters);
    text += u' ' + TimeText(time - scope.openTime.time);
    if (scope.threadId != threadId) {
        text += u" (thread " + NumberText(static_cast<int64>(scope.threadId)) + u")";
    }
}

}  // namespace

void OpenWork::Announce() const noexcept {
    if (Metrics::SetLastWords != nullptr) {
        Metrics::SetLastWords(*this);
    }
}

void OpenWork::Withdraw() const noexcept {
    if (Metrics::WithdrawLastWords != nullptr) {
        Metrics::WithdrawLastWords(*this);
    }
}

TString OpenWork::DescribeOpenWork(uint64 threadId, int64 time) const {
    std::vector<const ScopeState*> open;
    m_scopes.ForEach([&open](const ScopeState& scope) {
        if (scope.tracing) {
            open.push_back(&scope);
        }
    });
    std::sort(open.begin(), open.end(), [threadId](const ScopeState* a, const ScopeState* b) {
        const bool isOwnA = a->threadId == threadId;
        const bool isOwnB = b->threadId == threadId;
        if (isOwnA != isOwnB) {
            return isOwnA;
        }
        return a->openTime.time != b->openTime.time ? a->openTime.time > b->openTime.time
                                                    : a->scopeId > b->scopeId;
    });

    const std::size_t named = std::min(open.size(), mostScopes);
    std::u16string text;
    for (std::size_t i = 0; i < named; ++i) {
        Append(text, *open[i], threadId, time);
    }
    if (named < open.size()) {
        text += u" and " + NumberText(static_cast<int64>(open.size() - named)) + u" more";
    }
    return TString(std::move(text));
}

}  // namespace tarn
