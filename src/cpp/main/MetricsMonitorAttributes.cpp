// Attributes: which record each one belongs to.
#include "ActivityTokenText.h"
#include "ContextInfo.h"
#include "MonitorRecords.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/TarnMetricsUtils.h"
#include "tarn/TarnSettings.h"

#include <cstddef>
#include <memory>
#include <utility>

using Metrics::MetricsEvent;
using Metrics::MetricsValue;

namespace {

TString ToText(const MetricsValue& value) {
    return TarnMetricsUtils::MetricsValueToString(value);
}

std::size_t CountLayers(const MetricsMonitor::ContextInfo& context) {
    return context.layers != nullptr ? context.layers->size() : 0;
}

/// Query plans carry their query elsewhere; here it would be said twice.
bool IsQueryOfPlan(const TString& scopeName, const TString& attributeName) {
    return (attributeName == u"query" || attributeName == u"abstract-query") &&
           scopeName.startsWith(u"qp", TString::CaseSensitivity::Sensitive);
}

}  // namespace

void MetricsMonitor::AddAttributeToActivity(ScopeState& state,
                                            uint64 scopeId,
                                            const TString& name,
                                            const MetricsValue& value) {
    switch (m_records->names.activityAttributes.Find(name)) {
        case tarn::ActivityAttributeName::ThreadId:
            state.threadId = static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(value));
            state.threadIds.insert(state.threadId);
            return;
        case tarn::ActivityAttributeName::CommandName:
            return OnCommandName(state, scopeId, value);
        case tarn::ActivityAttributeName::ResultKey:
        case tarn::ActivityAttributeName::Unknown:
            break;
    }
    if (!IsQueryOfPlan(state.name, name)) {
        state.attributes.insert_or_assign(name, value);
    }
}

void MetricsMonitor::OnCommandName(ScopeState& state, uint64 scopeId, const MetricsValue& value) {
    AddAttributeToActivity(state, scopeId, tarn::Tokens().nameAttr, value);
}

void MetricsMonitor::RouteOpeningPairs(ScopeState& state, const Metrics::NameValueList& pairs) {
    const tarn::TokenStrings& tokens = tarn::Tokens();
    for (const auto& [nameValue, value] : pairs) {
        const TString name = ToText(nameValue);
        if (name == tokens.traceDepthAttr) {
            state.traceDepth = static_cast<int32>(TarnMetricsUtils::MetricsValueToInt(value));
        } else if (name == tokens.serviceDepthAttr) {
            state.serviceDepth = static_cast<int32>(TarnMetricsUtils::MetricsValueToInt(value));
        } else if (name == tokens.foregroundRootAttr) {
            state.rootIdText = ToText(value);
        } else if (name == tokens.activityIdAttr) {
            state.ownIdText = ToText(value);
        } else if (name == tokens.ridAttr) {
            TString requestText = ToText(value);
            if (requestText != TarnMetricsUtils::DefaultStringAttributeValue()) {
                state.requestText = std::move(requestText);
            }
        } else if (name != tokens.sponsorActivityIdAttr) {
            AddAttributeToActivity(state, state.scopeId, name, value);
        }
    }
}

void MetricsMonitor::OnNameValue(const MetricsEvent& event) {
    if (ScopeState* const state = m_records->FindScope(event.id)) {
        AddAttributeToActivity(*state, event.id, ToText(event.name), event.value);
    }
}

void MetricsMonitor::OnNameValuePairs(const MetricsEvent& event) {
    ScopeState* const state = m_records->FindScope(event.id);
    if (state == nullptr) {
        return;
    }
    switch (m_records->names.lists.Find(ToText(event.name))) {
        case tarn::ListName::CpuAttributes:
            return OnMemoryCpuValuePairs(*state, event.pairs, ScopeState::DumpType::Cpu);
        case tarn::ListName::MemoryAttributes:
            return OnMemoryCpuValuePairs(*state, event.pairs, ScopeState::DumpType::Memory);
        case tarn::ListName::ResultAttributes:
            return OnResultAttrs(*state, event.pairs);
        default:
            for (const auto& [name, value] : event.pairs) {
                AddAttributeToActivity(*state, event.id, ToText(name), value);
            }
    }
}

void MetricsMonitor::OnResultAttrs(ScopeState& state, const Metrics::NameValueList& pairs) {
    for (const auto& [nameValue, value] : pairs) {
        TString name = ToText(nameValue);
        if (m_records->names.activityAttributes.Find(name) ==
            tarn::ActivityAttributeName::ResultKey) {
            state.result = ToText(value);
        } else {
            state.resultPairs.emplace_back(std::move(name), ToText(value));
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
    switch (m_records->names.contextAttributes.Find(ToText(event.name))) {
        case tarn::ContextAttributeName::ContextId:
        case tarn::ContextAttributeName::ThreadId:
            context->ownAttributes.emplace_back(event.name, event.value);
            return;
        default:
            context->pendingAttributes.emplace_back(event.name, event.value);
    }
}

void MetricsMonitor::OnAttributePairs(const MetricsEvent& event) {
    ContextInfo* const context = m_records->FindContext(event.contextId);
    if (context == nullptr) {
        return;
    }
    const tarn::ListName list = m_records->names.lists.Find(ToText(event.name));
    if (list == tarn::ListName::RequestContextAttributes) {
        return AddAttributesToRequestContext(*context, event.pairs);
    }
    const std::size_t layersBefore = CountLayers(*context);
    try {
        if (list == tarn::ListName::MappableContextAttributes) {
            HandleMappableContextAttributes(*context, event.pairs);
        } else if (list == tarn::ListName::ContextAttributes) {
            AddContextAttributeLayer(*context, event.pairs);
        }
    } catch (...) {
        // The removal that is to come must not take another scope's layer.
        if (CountLayers(*context) == layersBefore) {
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
    if (!contextPairs.empty()) {
        AddContextAttributeLayer(context, contextPairs);
    }
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
    // Whoever shares the list so far does not see the new layer.
    auto layers = context.layers != nullptr ? std::make_shared<ContextInfo::Layers>(*context.layers)
                                            : std::make_shared<ContextInfo::Layers>();
    layers->resize(layers->size() + context.missingLayers);
    layers->push_back(std::move(layer));
    context.layers = std::move(layers);
    context.missingLayers = 0;
}

void MetricsMonitor::AddContextAttributesToScope(ScopeState& state,
                                                 ContextInfo& context,
                                                 uint64 /*scopeId*/) {
    for (const auto& [name, value] : context.ownAttributes) {
        if (m_records->names.contextAttributes.Find(ToText(name)) ==
            tarn::ContextAttributeName::ThreadId) {
            state.threadId = static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(value));
            state.threadIds.insert(state.threadId);
        }
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
    for (const TString& name : {tarn::Tokens().viewAttr, tarn::Tokens().workbookAttr}) {
        const auto found = context->request->attributes.find(name);
        if (found != context->request->attributes.end()) {
            parent.request->attributes.insert_or_assign(name, found->second);
        }
    }
}
