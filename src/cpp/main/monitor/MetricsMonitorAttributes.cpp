// Attributes: which record each one belongs to.
#include "ActivityTokenText.h"
#include "ContextInfo.h"
#include "MonitorRecords.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/TarnMetricsUtils.h"
#include "tarn/TarnSettings.h"

#include <memory>
#include <optional>
#include <utility>

using Metrics::MetricsEvent;
using Metrics::MetricsValue;

namespace {

TString ToText(const MetricsValue& value) {
    return TarnMetricsUtils::MetricsValueToString(value);
}

bool IsLayer(tarn::ListName list) {
    return list == tarn::ListName::MappableContextAttributes ||
           list == tarn::ListName::ContextAttributes;
}

/// Query plans carry their query elsewhere; here it would be said twice.
bool IsQueryOfPlan(const TString& scopeName, const TString& attributeName) {
    return scopeName.View().substr(0, 2) == u"qp" &&
           (attributeName.View() == u"query" || attributeName.View() == u"abstract-query");
}

}  // namespace

void MetricsMonitor::AddAttributeToActivity(ScopeState& state,
                                            uint64 scopeId,
                                            const tarn::MonitorName& name,
                                            const MetricsValue& value) {
    switch (name.activityAttribute) {
        case tarn::ActivityAttributeName::ThreadId:
            state.threadId = static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(value));
            state.threadIds.Insert(state.threadId);
            return;
        case tarn::ActivityAttributeName::CommandName:
            return OnCommandName(state, scopeId, value);
        case tarn::ActivityAttributeName::ResultKey:
        case tarn::ActivityAttributeName::Unknown:
            break;
    }
    if (IsQueryOfPlan(state.name, name.text)) {
        return;
    }
    if (m_records->attributesPerScope.Admits(state.attributes.Size()) ||
        state.attributes.Find(name.text) != nullptr) {
        state.attributes.Set(name.text, value);
    } else {
        m_records->attributesPerScope.LeaveOut();
    }
}

void MetricsMonitor::OnCommandName(ScopeState& state, uint64 scopeId, const MetricsValue& value) {
    AddAttributeToActivity(
        state, scopeId, m_records->names.Read(MetricsValue(tarn::Tokens().nameAttr)), value);
}

void MetricsMonitor::RouteOpeningPairs(ScopeState& state,
                                       const ScopeState& parent,
                                       const Metrics::NameValueList& pairs) {
    using tarn::OpeningPairName;
    const bool saysCaller = m_records->hasAdditionalFields.load(std::memory_order_relaxed);
    for (const auto& [nameValue, value] : pairs) {
        const tarn::MonitorName& name = m_records->names.Read(nameValue);
        switch (name.openingPair) {
            case OpeningPairName::TraceDepth:
                state.traceDepth = static_cast<int32>(TarnMetricsUtils::MetricsValueToInt(value));
                break;
            case OpeningPairName::ServiceDepth:
                state.serviceDepth = static_cast<int32>(TarnMetricsUtils::MetricsValueToInt(value));
                break;
            case OpeningPairName::RootId:
                state.rootIdText = ToText(value);
                break;
            case OpeningPairName::OwnId:
                state.ownIdText = ToText(value);
                break;
            case OpeningPairName::RequestId:
                if (TString text = ToText(value); text != tarn::NoText()) {
                    state.requestText = std::move(text);
                }
                break;
            case OpeningPairName::SponsorId:
                // Who is not in the log cannot be named: then it is who started that one.
                if (saysCaller) {
                    TString starter = ToText(value);
                    if (!IsSilent(parent) || starter != parent.ownIdText) {
                        state.callerText = std::move(starter);
                    }
                }
                break;
            case OpeningPairName::Unknown:
                AddAttributeToActivity(state, state.scopeId, name, value);
        }
    }
}

void MetricsMonitor::OnNameValue(const MetricsEvent& event) {
    if (ScopeState* const state = m_records->FindScope(event.id)) {
        AddAttributeToActivity(*state, event.id, m_records->names.Read(event.name), event.value);
    }
}

void MetricsMonitor::OnNameValuePairs(const MetricsEvent& event) {
    ScopeState* const state = m_records->FindScope(event.id);
    if (state == nullptr) {
        return;
    }
    switch (m_records->names.Read(event.name).list) {
        case tarn::ListName::CpuAttributes:
            return OnMemoryCpuValuePairs(*state, event.pairs, ScopeState::DumpType::Cpu);
        case tarn::ListName::MemoryAttributes:
            return OnMemoryCpuValuePairs(*state, event.pairs, ScopeState::DumpType::Memory);
        case tarn::ListName::ResultAttributes:
            return OnResultAttrs(*state, event.pairs);
        default:
            for (const auto& [name, value] : event.pairs) {
                AddAttributeToActivity(*state, event.id, m_records->names.Read(name), value);
            }
    }
}

void MetricsMonitor::OnResultAttrs(ScopeState& state, const Metrics::NameValueList& pairs) {
    for (const auto& [nameValue, value] : pairs) {
        const tarn::MonitorName& name = m_records->names.Read(nameValue);
        if (name.activityAttribute == tarn::ActivityAttributeName::ResultKey) {
            state.result = ToText(value);
        } else {
            state.resultPairs.emplace_back(name.text, ToText(value));
        }
    }
}

void MetricsMonitor::OnSupplementalPairs(const MetricsEvent& event) {
    if (ScopeState* const state = m_records->FindScope(event.id)) {
        state->supplements.push_back({MetricsTimeInfo::Of(event).WallMicroseconds(), event.pairs});
    }
}

void MetricsMonitor::OnAttribute(const MetricsEvent& event) {
    ContextInfo* const context = m_records->FindContext(event.contextId);
    if (context == nullptr) {
        return;
    }
    switch (m_records->names.Read(event.name).contextAttribute) {
        case tarn::ContextAttributeName::ContextId:
            // Nothing in the log is made of it.
            return;
        case tarn::ContextAttributeName::ThreadId: {
            const auto thread =
                static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(event.value));
            context->threads.Insert(thread);
            context->lastThread = thread;
            return;
        }
        default:
            if (m_records->pendingAttributes.Admits(context->pendingAttributes.size())) {
                context->pendingAttributes.emplace_back(event.name, event.value);
            } else {
                m_records->pendingAttributes.LeaveOut();
            }
    }
}

void MetricsMonitor::OnAttributePairs(const MetricsEvent& event) {
    ContextInfo* const context = m_records->FindContext(event.contextId);
    if (context == nullptr) {
        return;
    }
    const std::shared_ptr<ContextInfo::Layers> layersBefore = context->layers;
    std::optional<tarn::ListName> list;
    try {
        list = m_records->names.Read(event.name).list;
        if (list == tarn::ListName::RequestContextAttributes) {
            AddAttributesToRequestContext(*context, event.pairs);
        } else if (list == tarn::ListName::MappableContextAttributes) {
            HandleMappableContextAttributes(*context, event.pairs);
        } else if (list == tarn::ListName::ContextAttributes) {
            AddContextAttributeLayer(*context, event.pairs);
        }
    } catch (...) {
        // The removal that is to come must not take another scope's layer.
        if (IsLayer(list ? *list : m_records->names.FindListAsSpelled(event.name)) &&
            context->layers == layersBefore) {
            ++context->missingLayers;
        }
        throw;
    }
}

void MetricsMonitor::HandleMappableContextAttributes(ContextInfo& context,
                                                     const Metrics::NameValueList& pairs) {
    Metrics::NameValueList requestPairs;
    Metrics::NameValueList contextPairs;
    for (const auto& [name, value] : pairs) {
        const auto [isMapped, target] =
            tarn::TarnSettings::GetInstance().GetEventAttributeMapping(ToText(name));
        if (isMapped) {
            requestPairs.emplace_back(target, value);
        } else {
            contextPairs.emplace_back(name, value);
        }
    }
    // Even one without attributes: the removal that is to come takes this layer, and no other.
    AddContextAttributeLayer(context, contextPairs);
    if (!requestPairs.empty()) {
        AddAttributesToRequestContext(context, requestPairs);
    }
}

void MetricsMonitor::AddContextAttributeLayer(ContextInfo& context,
                                              const Metrics::NameValueList& pairs) {
    ContextInfo::Layer layer;
    for (const auto& [name, value] : pairs) {
        layer.insert_or_assign(ToText(name), value);
    }
    // Contexts that share the layers so far do not see the new one.
    auto layers = context.layers != nullptr ? std::make_shared<ContextInfo::Layers>(*context.layers)
                                            : std::make_shared<ContextInfo::Layers>();
    for (uint64 missing = context.missingLayers; missing > 0; --missing) {
        layers->Push({});
    }
    layers->Push(std::move(layer));
    context.layers = std::move(layers);
    context.missingLayers = 0;
}

void MetricsMonitor::AddContextAttributesToScope(ScopeState& state,
                                                 ContextInfo& context,
                                                 uint64 /*scopeId*/) {
    if (!context.threads.IsEmpty()) {
        state.threadIds.Insert(context.threads);
        state.threadId = context.lastThread;
    }
}

void MetricsMonitor::AddSpecificContextAttributesToParent(ScopeState& state) {
    const ContextInfo* const context = m_records->FindContext(state.contextId);
    if (context == nullptr || context->request == nullptr || context->parentId == 0 ||
        !ContextExists(context->parentId)) {
        return;
    }
    ContextInfo& parent = *m_records->FindContext(context->parentId);
    if (parent.request == nullptr) {
        parent.request = std::make_shared<tarn::RequestContextAttributes>();
    }
    if (parent.request == context->request) {
        return;
    }
    for (const auto name :
         {tarn::ContextAttributeName::View, tarn::ContextAttributeName::Workbook}) {
        if (const MetricsValue* const value = context->request->attributes.Find(name)) {
            parent.request->attributes.Set(name, *value);
        }
    }
}
