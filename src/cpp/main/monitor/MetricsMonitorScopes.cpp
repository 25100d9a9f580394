// Scopes: which are tracked, what they inherit, and when they are logged.
#include "ContextInfo.h"
#include "Depth.h"
#include "MonitorRecords.h"
#include "OptTarnInternal.h"
#include "RequestContextAttributes.h"
#include "ValueText.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"

#include <memory>
#include <utility>

namespace {

using Metrics::EventView;

/// Runs a function when a block is left, by whatever way.
template <class Function>
class Finally {
public:
    explicit Finally(Function function) : m_function(std::move(function)) {}

    ~Finally() { m_function(); }

    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;

private:
    Function m_function;
};

void PopBack(std::deque<uint64>& ids) {
    if (!ids.empty()) {
        ids.pop_back();
    }
}

/// What the opening of a scope has changed so far. If the opening fails on its way, all of that is
/// taken back, as if the scope had closed at once.
class Opening {
public:
    Opening(MetricsMonitor::ContextInfo& context, tarn::PassedOverIds& passedOver) noexcept
        : m_context(context),
          m_passedOver(passedOver) {}

    ~Opening() {
        if (!m_isDone) {
            TakeBack();
        }
    }

    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

    void Count() noexcept {
        OptTarn::IncrementCorvalaCounterScopesOpened();
        m_isCounted = true;
        OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorScopeOpenedConst());
    }

    void Push(uint64 scopeId, bool tracing) {
        m_context.openScopes.Push(scopeId);
        m_isPushed = true;
        if (tracing) {
            m_context.openTracingScopes.push_back(scopeId);
            m_isPushedAsTracing = true;
        }
    }

    /// From here on the scope is open.
    void Finish() noexcept { m_isDone = true; }

private:
    void TakeBack() noexcept {
        if (m_isPushedAsTracing) {
            m_context.openTracingScopes.pop_back();
        }
        if (m_isPushed) {
            m_context.openScopes.Pop(m_passedOver, true);
        }
        if (m_isCounted) {
            OptTarn::IncrementCorvalaCounterScopesClosed();
            OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorScopedClosedConst());
        }
    }

    MetricsMonitor::ContextInfo& m_context;
    tarn::PassedOverIds& m_passedOver;
    bool m_isCounted = false;
    bool m_isPushed = false;
    bool m_isPushedAsTracing = false;
    bool m_isDone = false;
};

void WarnOfClosingOutOfSync(uint64 scopeId, const TString& name) {
    TLog::Logger& logger = TLog::Logger::Get();
    if (logger.IsEnabled(TLog::Warn)) {
        logger.LogMessage(TLog::Warn,
                          TFormatString(u"MetricsMonitor tried to close open scope %1, %2 out of "
                                        u"sync with context's open scopes.")
                              .Arg(scopeId)
                              .Arg(name)
                              .ToString());
    }
}

/// The scope was started by the one that it opens in, or by who started that one if the log does
/// not say anything of it. That may have ended meanwhile.
void NameCaller(MetricsMonitor::ScopeState& state, const MetricsMonitor::ScopeState& parent) {
    const bool isLogged = parent.tracing && !IsSilent(parent);
    state.callerId = isLogged ? parent.activityId : parent.callerId;
    state.callerText = isLogged ? parent.ownIdText : parent.callerText;
}

}  // namespace

bool MetricsMonitor::ShouldOpenScope(uint64 contextId, bool tracing) const {
    return ContextExistsAndIsOpen(contextId) &&
           (tracing || m_records->FindContext(contextId)->openScopes.IsEmpty());
}

void MetricsMonitor::OnOpenScope(const EventView& event) {
    const bool request = IsRequestScope(event);
    const bool tracing = (event.flags & Metrics::flagTracing) != 0 || request;
    if (!ShouldOpenScope(event.contextId, tracing)) {
        return;
    }
    ContextInfo& context = *m_records->FindContext(event.contextId);
    if (!m_records->nestedScopes.Admits(context.openScopes.Depth())) {
        return m_records->nestedScopes.LeaveOut();
    }
    auto record = m_records->scopes.TakeSpare();
    ScopeState& state = record.mapped();
    const ScopeState& parent = InnermostState(context);
    state.ResetUnder(parent);
    NameCaller(state, parent);
    state.scopeId = event.id;
    state.name = m_records->names.Read(event.name).text;
    state.contextId = event.contextId;
    state.tracing = tracing;

    Opening opening(context, m_records->passedOver);
    opening.Count();
    const bool startsRequest = request || (tracing && context.openTracingScopes.empty());
    if (startsRequest) {
        // It stays when the opening fails, as it would when the scope closed at once.
        StartRequest(context);
    }
    bool isLogged = false;
    if (tracing) {
        FillTracingState(state, parent, event, context, request, startsRequest);
        isLogged = !IsSilent(state);
        if (!isLogged) {
            KeepOpeningAttributes(state);
        }
    }
    opening.Push(event.id, tracing);
    ScopeState& stored = m_records->scopes.Put(event.id, std::move(record));
    m_records->passedOver.HasRecord(event.id);
    opening.Finish();
    if (tracing) {
        if (context.request != nullptr) {
            context.pendingAttributes.clear();
        }
    }
    if (isLogged) {
        LogBegin(stored);
    }
}

void MetricsMonitor::FillTracingState(ScopeState& state,
                                      const ScopeState& parent,
                                      const EventView& event,
                                      ContextInfo& context,
                                      bool request,
                                      bool startsRequest) {
    m_records->opening.Clear();
    const bool foreground = OptTarn::GetIsForegroundThreadContextEnabled();
    if (foreground) {
        RouteOpeningPairs(state, parent, event.pairs);
    } else {
        for (const auto& [name, value] : event.pairs) {
            AddOpeningAttribute(state, m_records->names.Read(name), value);
        }
    }
    state.activityId = m_records->uuidGenerator->CreateUUID();
    state.transparent = (event.flags & Metrics::flagTransparent) != 0;
    state.untrackedOrRequest = (event.flags & Metrics::flagUntracked) != 0 || request;
    AddContextAttributesToScope(state, context, event.id);
    AddPendingContextAttributesToContext(state, context, event.id);
    if (startsRequest) {
        state.requestActivityId = state.activityId;
        state.sponsorChain.Push(event.id);
        if (!foreground) {
            state.traceDepth = 0;
            state.serviceDepth = 0;
        }
    } else {
        state.sponsorChain.Push(context.openTracingScopes.back());
        if (!foreground && !IsSilent(state)) {
            state.traceDepth = tarn::OneDeeper(state.traceDepth);
            state.serviceDepth = tarn::OneDeeper(state.serviceDepth);
        }
    }
    state.openTime = MetricsTimeInfo::Of(event);
}

// For a scope that only its end may tell of.
void MetricsMonitor::KeepOpeningAttributes(ScopeState& state) const {
    for (const auto& [name, value] : m_records->opening) {
        state.attributes.Set(name, value.ToValue());
    }
}

// What the begin event has said the end event does not repeat.
void MetricsMonitor::LogBegin(ScopeState& state) {
    m_records->sink.Log(CreateBeginLogEvent({state, state.openTime}));
}

std::pair<bool, bool> MetricsMonitor::ShouldCloseScope(uint64 contextId, uint64 scopeId) const {
    if (!ContextExistsAndIsOpen(contextId)) {
        return {false, false};
    }
    if (ScopeIsOpenTopMostInContext(contextId, scopeId)) {
        return {true, false};
    }
    return {false, ScopeIsOpen(scopeId)};
}

void MetricsMonitor::OnCloseScope(const EventView& event) {
    const auto [close, drop] = ShouldCloseScope(event.contextId, event.id);
    if (drop) {
        // The context's stacks keep the id: what was opened above it is still nested.
        const Finally forgetRecord([this, &event] {
            m_records->ForgetScope(event.id);
            m_records->FindContext(event.contextId)->openScopes.CountLost();
        });
        WarnOfClosingOutOfSync(event.id, m_records->FindScope(event.id)->name);
        return;
    }
    if (!close) {
        return;
    }
    ScopeState* const state = m_records->FindScope(event.id);
    ContextInfo& context = *m_records->FindContext(event.contextId);
    // What the stacks say holds as long as nothing else does.
    bool tracing =
        !context.openTracingScopes.empty() && context.openTracingScopes.back() == event.id;
    const Finally forgetScope([this, &event, &context, &tracing, hadRecord = state != nullptr] {
        m_records->ForgetScope(event.id);
        context.openScopes.Pop(m_records->passedOver, hadRecord);
        if (tracing) {
            PopBack(context.openTracingScopes);
        }
    });
    // The record of an id that was dropped out of order cannot say what the scope was.
    tracing = state != nullptr ? state->tracing
                               : (event.flags & Metrics::flagTracing) != 0 || IsRequestScope(event);
    OptTarn::IncrementCorvalaCounterScopesClosed();
    OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorScopedClosedConst());
    if (tracing && state != nullptr) {
        LogEnd(*state, event);
    }
}

void MetricsMonitor::LogEnd(ScopeState& state, const EventView& event) {
    const MetricsTimeInfo closeTime = MetricsTimeInfo::Of(event);
    AddEndActivitySpecificNameValues(state, event.id, closeTime);
    if (OptTarn::GetIsForegroundThreadContextEnabled()) {
        AddSpecificContextAttributesToParent(state);
    }
    if (IsSilent(state)) {
        return;
    }
    if (auto* const listener = m_records->finishedListener.load(std::memory_order_acquire)) {
        NotifyFinished(state, closeTime, *listener);
    }
    m_records->sink.Log(CreateEndLogEvent({state, closeTime}));
}

void MetricsMonitor::OnPostCloseScope(const EventView& event) {
    ContextInfo* const context = m_records->FindContext(event.contextId);
    if (context == nullptr || !tarn::IsInteger(event.value)) {
        return;
    }
    constexpr auto popLayer =
        static_cast<uint32>(Metrics::MetricsCloseScopeActions::PopRequestContextAttributes);
    const auto action = static_cast<uint32>(static_cast<uint64>(tarn::IntegerOf(event.value)));
    if (action != popLayer) {
        return;
    }
    if (context->missingLayers > 0) {
        --context->missingLayers;
    } else if (context->layers != nullptr) {
        context->layers->Pop();
    }
}

bool MetricsMonitor::ScopeIsOpen(uint64 scopeId) const {
    return m_records->FindScope(scopeId) != nullptr;
}

bool MetricsMonitor::ScopeIsOpenTopMostInContext(uint64 contextId, uint64 scopeId) const {
    const ContextInfo* const context = m_records->FindContext(contextId);
    return context != nullptr && !context->openScopes.IsEmpty() &&
           context->openScopes.Last() == scopeId;
}

uint64 MetricsMonitor::FindOpenSponsor(const ScopeState& state, bool anySponsor) const {
    for (const uint64 id : state.sponsorChain) {
        const ScopeState* const sponsor = m_records->FindScope(id);
        if (sponsor != nullptr && (anySponsor || !sponsor->transparent)) {
            return id;
        }
    }
    TLog::Logger& logger = TLog::Logger::Get();
    if (OptTarn::GetIsServer() && logger.IsEnabled(TLog::Trace)) {
        logger.LogMessage(TLog::Trace,
                          TFormatString(u"Scope %1 has no open sponsors.")
                              .Arg(state.activityId.ToString(TUUIDFormatOption::UpperHyphenated))
                              .ToString());
    }
    return 0;
}
