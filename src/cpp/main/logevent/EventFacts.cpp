#include "EventFacts.h"

#include "OptTarnInternal.h"
#include "ResourceTracking.h"
#include "ValueText.h"

#include "tarn/OptTarn.h"

namespace tarn {
namespace {

constexpr EventFacts If(bool holds, EventFacts facts) {
    return holds ? facts : 0;
}

EventFacts RequestFacts(const ActivityEventInput& input) {
    const TString& none = NoText();
    if (input.scope.requestText != none) {
        return fact::knownRequest;
    }
    const auto* const named = input.attributes.Find(ContextAttributeName::RequestId);
    if (named == nullptr || !IsText(*named)) {
        return 0;
    }
    const TLog::TextView text = ViewOfText(*named);
    return If(text.IsUtf8() ? text.GetUtf8() != "-" : text.GetUtf16() != none.View(),
              fact::namedRequest);
}

/// Whether somebody else is known to have started the scope.
bool HasCaller(const MetricsMonitor::ScopeState& scope, bool foreground) {
    if (!foreground) {
        return scope.callerId != TUUID() && scope.callerId != scope.activityId;
    }
    const TString& own = scope.traceDepth <= 0 ? scope.rootIdText : scope.ownIdText;
    const TString& caller = scope.callerText;
    return !caller.IsEmpty() && caller != NoText() && caller != own;
}

EventFacts OutcomeFacts(const MetricsMonitor::ScopeState& scope) {
    EventFacts facts = fact::end | fact::hasBody |
                       If(scope.sponseeErrors > 0, fact::sponseeErrors) |
                       If(scope.sponseeEarlyTerminations > 0, fact::sponseeEarlyTerminations) |
                       If(!scope.supplements.empty(), fact::supplements) |
                       If(!OptTarn::ServerEnvironment().IsEmpty(), fact::environment);
    if (OptTarn::GetIsTarnPlatforms()) {
        facts |= fact::resources | If(IsCpuTimeLogged(), fact::processorTime) |
                 If(GetLoggedMemoryTrackingMode() == corvala::memory::MemoryTrackingAll,
                    fact::allMemory);
    }
    return facts;
}

}  // namespace

EventFacts FindFacts(ActivityPhase phase, const ActivityEventInput& input) {
    const MetricsMonitor::ScopeState& scope = input.scope;
    const bool foreground = OptTarn::GetIsForegroundThreadContextEnabled();
    EventFacts facts =
        uint64{input.attributes.GetPresent()} << 32 | RequestFacts(input) |
        If(scope.traceDepth == 0, fact::topOfTrace) | If(scope.traceDepth <= 0, fact::isRoot) |
        If(scope.traceDepth == 1, fact::sponsoredByRoot) | If(OptTarn::GetIsServer(), fact::server);
    if (foreground) {
        facts |= fact::foreground;
    } else {
        facts |= If(input.sponsorActivityId != scope.activityId, fact::otherSponsor) |
                 If(input.requestActivityId != scope.activityId, fact::otherRoot);
    }
    if (input.lineNumber != 0) {
        facts |= fact::lineNumber | If(HasCaller(scope, foreground), fact::caller);
    }
    if (phase == ActivityPhase::Begin) {
        facts |= fact::begin | fact::hasBody;
    } else if (phase == ActivityPhase::End) {
        facts |= OutcomeFacts(scope);
    }
    return facts;
}

}  // namespace tarn
