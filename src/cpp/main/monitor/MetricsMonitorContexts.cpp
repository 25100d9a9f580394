// Contexts: their events, and the attributes of the requests that they serve.
#include "MonitorRecords.h"
#include "NeverDestroyed.h"
#include "OptTarnInternal.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TUUID.h"

#include <memory>
#include <utility>

using Metrics::EventView;
using Metrics::MetricsValue;

namespace {

void WarnOfUselessOpening(uint64 contextId) {
    TLog::Logger& logger = TLog::Logger::Get();
    if (logger.IsEnabled(TLog::Warn)) {
        logger.LogMessage(
            TLog::Warn,
            TFormatString(u"Context %1 was opened although it is open or has ended, or was made "
                          u"before this monitor. What is traced in it may be missing here; so may "
                          u"what is traced in other such contexts. Work that runs several times "
                          u"needs a context for each run (tarn::ActivityHandOver).")
                .Arg(contextId)
                .ToString());
    }
}

}  // namespace

void MetricsMonitor::OnCreateContext(const EventView& event) {
    const auto [created, isNew] = m_records->contexts.FindOrMake(event.id);
    ContextInfo& child = *created;
    OptTarn::IncrementCorvalaCounterContextsCreated();
    OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorContextsCreatedConst());
    if (event.contextId == 0) {
        child.parentId = 0;
        return;
    }
    try {
        // A child may be announced before its parent: the parent is known from then on.
        ContextInfo& parent = *m_records->contexts.FindOrMake(event.contextId).first;
        ScopeState baseState = InnermostState(parent);
        if (!parent.openTracingScopes.empty()) {
            child.openTracingScopes.push_back(parent.openTracingScopes.back());
        }
        child.parentId = event.contextId;
        child.baseState = std::move(baseState);
        child.request = parent.request;
        if (child.layers == nullptr) {
            child.layers = parent.layers;
        }
    } catch (...) {
        // Forget it: half known, it would put its scopes into the log without their sponsor.
        if (isNew) {
            OnCloseContext(event);
        }
        throw;
    }
}

void MetricsMonitor::OnOpenContext(const EventView& event) {
    ContextInfo* const context = m_records->FindContext(event.id);
    const bool isFirstOpening = context != nullptr && !context->isOpen;
    if (isFirstOpening) {
        context->isOpen = true;
    } else if (!std::exchange(m_records->hasWarnedOfUselessOpening, true)) {
        WarnOfUselessOpening(event.id);
    }
}

void MetricsMonitor::OnCloseContext(const EventView& event) {
    ContextInfo* const context = m_records->FindContext(event.id);
    if (context == nullptr) {
        return;
    }
    context->openScopes.Release(m_records->passedOver);
    m_records->contexts.TakeOut(event.id);
    OptTarn::IncrementCorvalaCounterContextsClosed();
    OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorContextsClosedConst());
}

bool MetricsMonitor::ContextExists(uint64 contextId) const {
    return m_records->FindContext(contextId) != nullptr;
}

bool MetricsMonitor::ContextExistsAndIsOpen(uint64 contextId) const {
    const ContextInfo* const context = m_records->FindContext(contextId);
    return context != nullptr && context->isOpen;
}

const MetricsMonitor::ScopeState& MetricsMonitor::InnermostState(ContextInfo& context) {
    // Ids whose records were dropped out of order are passed over.
    const ScopeState* const innermost = context.openScopes.FindInnermost(
        m_records->passedOver, [this](uint64 id) { return m_records->FindScope(id); });
    return innermost != nullptr ? *innermost : context.baseState;
}

bool MetricsMonitor::IsRequestScope(const EventView& event) const {
    if (OptTarn::GetIsForegroundThreadContextEnabled() ||
        (event.flags & Metrics::flagTracing) != 0) {
        return false;
    }
    return m_records->names.Read(event.name).list == tarn::ListName::Request;
}

void MetricsMonitor::SetRequestDefaults(Metrics::NameValueList attributes, bool assignIds) {
    if (m_records->hasRequestDefaults.load(std::memory_order_acquire)) {
        return;
    }
    m_records->requestDefaults = std::move(attributes);
    m_records->assignRequestIds = assignIds;
    m_records->hasRequestDefaults.store(true, std::memory_order_release);
}

void MetricsMonitor::StartRequest(ContextInfo& context) {
    context.request = std::make_shared<tarn::RequestContextAttributes>();
    if (!m_records->hasRequestDefaults.load(std::memory_order_acquire)) {
        return;
    }
    AddAttributesToRequestContext(context, m_records->requestDefaults);
    if (m_records->assignRequestIds) {
        context.request->attributes.Set(tarn::ContextAttributeName::RequestId,
                                        MetricsValue(TUUID::CreateUUID().ToString()));
    }
}

void MetricsMonitor::AddAttributesToRequestContext(ContextInfo& context,
                                                   const Metrics::NameValueList& pairs) {
    if (context.request == nullptr) {
        return;
    }
    auto& attributes = context.request->attributes;
    for (const auto& [nameValue, value] : pairs) {
        const tarn::MonitorName& name = m_records->names.Read(nameValue);
        if (name.contextAttribute == tarn::ContextAttributeName::RequestDescription) {
            const MetricsValue* const current = attributes.Find(name.contextAttribute);
            if (current != nullptr &&
                !IsReplaceableRequestDescription(TarnMetricsUtils::MetricsValueToString(*current),
                                                 value)) {
                continue;
            }
        }
        attributes.Set(name.contextAttribute, value);
    }
}

// The list stays as it is until the scope is open: an opening that fails loses nothing.
void MetricsMonitor::AddPendingContextAttributesToContext(ScopeState& /*scope*/,
                                                          ContextInfo& context,
                                                          uint64 /*scopeId*/) {
    if (context.request != nullptr) {
        AddAttributesToRequestContext(context, context.pendingAttributes);
    }
}

bool MetricsMonitor::IsReplaceableRequestDescription(const TString& current,
                                                     const MetricsValue& incoming) {
    // General descriptions, which say less than what may come later.
    static const tarn::NeverDestroyed<TString> commands(u"/sessions/{sessionId}/commands");
    static const tarn::NeverDestroyed<TString> bootstrap(u"/bootstrapSession");

    constexpr auto sensitive = TString::CaseSensitivity::Sensitive;
    if (current.IsEmpty() || current.startsWith(commands.Get(), sensitive)) {
        return true;
    }
    return current.startsWith(bootstrap.Get(), sensitive) &&
           incoming.type == MetricsValue::MV_Utf8String &&
           TarnMetricsUtils::ConvertMetricsValueToTString(incoming).startsWith(bootstrap.Get(),
                                                                               sensitive);
}
