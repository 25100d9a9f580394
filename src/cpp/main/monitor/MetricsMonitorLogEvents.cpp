// Log events: what the monitor gives to the producer for one scope at one moment.
#include "ActivityEventInput.h"
#include "LineNumbers.h"
#include "MonitorRecords.h"
#include "NeverDestroyed.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include <atomic>

namespace {

/// The attributes where there is no request.
const tarn::RequestContextAttributes::Table& NoAttributes() {
    static const tarn::NeverDestroyed<tarn::RequestContextAttributes::Table> none;
    return none.Get();
}

}  // namespace

TLog::Event MetricsMonitor::CreateBeginLogEvent(const ScopeStateWithEventTimeInfo& scope) const {
    return CreateLogEvent(scope, ActivityPhase::Begin);
}

TLog::Event MetricsMonitor::CreateEndLogEvent(const ScopeStateWithEventTimeInfo& scope) const {
    return CreateLogEvent(scope, ActivityPhase::End);
}

TLog::Event MetricsMonitor::CreateLogEvent(const ScopeStateWithEventTimeInfo& scope,
                                           ActivityPhase phase) const {
    ScopeState& state = scope.state;
    const ContextInfo* const context = m_records->FindContext(state.contextId);
    const bool hasRequest = context != nullptr && context->request != nullptr;
    tarn::ActivityEventInput input{
        state,
        &tarn::NoText(),
        TUUID(),
        state.requestActivityId,
        context != nullptr ? context->layers.get() : nullptr,
        hasRequest ? context->request->attributes : NoAttributes(),
        scope.time.WallMicroseconds(),
        m_records->hasAdditionalFields.load(std::memory_order_relaxed) ? tarn::DrawLineNumber() : 0,
        phase == ActivityPhase::Begin ? &m_records->opening : nullptr,
    };

    const bool foreground = OptTarn::GetIsForegroundThreadContextEnabled();
    const ScopeState* const sponsor =
        m_records->FindScope(FindOpenSponsor(state, OptTarn::GetShouldLogTransparent()));
    if (foreground && sponsor != nullptr) {
        input.sponsorText = &sponsor->ownIdText;
        // The scope serves its sponsor's request from now on.
        state.requestText = sponsor->requestText;
    } else if (foreground) {
        input.sponsorText = &state.rootIdText;
    } else {
        input.sponsorActivityId =
            sponsor != nullptr ? sponsor->activityId : input.requestActivityId;
    }

    return m_records->producer.Produce(phase, m_records->names.EventName(phase, state.name), input);
}
