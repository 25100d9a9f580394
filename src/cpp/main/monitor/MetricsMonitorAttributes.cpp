// Attributes: which record each one belongs to.
#include "ActivityTokenText.h"
#include "ContextInfo.h"
#include "MonitorRecords.h"
#include "ValueText.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/TarnSettings.h"

#include <memory>
#include <optional>
#include <utility>

using Metrics::EventView;
using Metrics::MetricsValue;
using Metrics::ValueView;

namespace {

bool IsLayer(tarn::ListName list) {
    return list == tarn::ListName::MappableContextAttributes ||
           list == tarn::ListName::ContextAttributes;
}

// What a scope has gathered so far: lent while it opens, its own after that.

using Attributes = MetricsMonitor::ScopeState::Attributes;

bool Has(const Attributes& attributes, const TString& name) {
    return attributes.Find(name) != nullptr;
}

bool Has(const tarn::OpeningAttributes& attributes, const TString& name) {
    return attributes.Has(name);
}

void Set(Attributes& attributes, const TString& name, const ValueView& value) {
    attributes.Set(name, value.ToValue());
}

void Set(tarn::OpeningAttributes& attributes, const TString& name, const ValueView& value) {
    attributes.Set(name, value);
}

/// Query plans carry their query elsewhere; here it would be said twice.
bool IsQueryOfPlan(const TString& scopeName, const TString& attributeName) {
    return scopeName.View().substr(0, 2) == u"qp" &&
           (attributeName.View() == u"query" || attributeName.View() == u"abstract-query");
}

}  // namespace

template <class Collected>
void MetricsMonitor::AddAttribute(ScopeState& state,
                                  const tarn::MonitorName& name,
                                  const ValueView& value,
                                  Collected& attributes) {
    switch (name.activityAttribute) {
        case tarn::ActivityAttributeName::ThreadId:
            state.threadId = static_cast<uint64>(tarn::IntegerOf(value));
            state.threadIds.Insert(state.threadId);
            return;
        case tarn::ActivityAttributeName::CommandName:
            return AddAttribute(
                state, m_records->names.Read(tarn::Tokens().nameAttr), value, attributes);
        case tarn::ActivityAttributeName::ResultKey:
        case tarn::ActivityAttributeName::Unknown:
            break;
    }
    if (IsQueryOfPlan(state.name, name.text)) {
        return;
    }
    if (m_records->attributesPerScope.Admits(attributes.Size()) || Has(attributes, name.text)) {
        Set(attributes, name.text, value);
    } else {
        m_records->attributesPerScope.LeaveOut();
    }
}

void MetricsMonitor::AddOpeningAttribute(ScopeState& state,
                                         const tarn::MonitorName& name,
                                         const ValueView& value) {
    AddAttribute(state, name, value, m_records->opening);
}

void MetricsMonitor::RouteOpeningPairs(ScopeState& state,
                                       const ScopeState& parent,
                                       Metrics::PairSpan pairs) {
    using tarn::OpeningPairName;
    const bool saysCaller = m_records->hasAdditionalFields.load(std::memory_order_relaxed);
    for (const auto& [nameValue, value] : pairs) {
        const tarn::MonitorName& name = m_records->names.Read(nameValue);
        switch (name.openingPair) {
            case OpeningPairName::TraceDepth:
                state.traceDepth = static_cast<int32>(tarn::IntegerOf(value));
                break;
            case OpeningPairName::ServiceDepth:
                state.serviceDepth = static_cast<int32>(tarn::IntegerOf(value));
                break;
            case OpeningPairName::RootId:
                state.rootIdText = tarn::TextOf(value);
                break;
            case OpeningPairName::OwnId:
                state.ownIdText = tarn::TextOf(value);
                break;
            case OpeningPairName::RequestId:
                if (TString text = tarn::TextOf(value); text != tarn::NoText()) {
                    state.requestText = std::move(text);
                }
                break;
            case OpeningPairName::SponsorId:
                // Who is not in the log cannot be named: then it is who started that one.
                if (saysCaller) {
                    TString starter = tarn::TextOf(value);
                    if (!IsSilent(parent) || starter != parent.ownIdText) {
                        state.callerText = std::move(starter);
                    }
                }
                break;
            case OpeningPairName::Unknown:
                AddOpeningAttribute(state, name, value);
        }
    }
}

void MetricsMonitor::OnNameValue(const EventView& event) {
    if (ScopeState* const state = m_records->FindScope(event.id)) {
        AddAttribute(*state, m_records->names.Read(event.name), event.value, state->attributes);
    }
}

void MetricsMonitor::OnNameValuePairs(const EventView& event) {
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
                AddAttribute(*state, m_records->names.Read(name), value, state->attributes);
            }
    }
}

void MetricsMonitor::OnResultAttrs(ScopeState& state, Metrics::PairSpan pairs) {
    for (const auto& [nameValue, value] : pairs) {
        const tarn::MonitorName& name = m_records->names.Read(nameValue);
        if (name.activityAttribute == tarn::ActivityAttributeName::ResultKey) {
            state.result = tarn::TextOf(value);
        } else {
            state.resultPairs.emplace_back(name.text, tarn::TextOf(value));
        }
    }
}

void MetricsMonitor::OnSupplementalPairs(const EventView& event) {
    if (ScopeState* const state = m_records->FindScope(event.id)) {
        state->supplements.push_back(
            {MetricsTimeInfo::Of(event).WallMicroseconds(), event.pairs.ToList()});
    }
}

void MetricsMonitor::OnAttribute(const EventView& event) {
    ContextInfo* const context = m_records->FindContext(event.contextId);
    if (context == nullptr) {
        return;
    }
    switch (m_records->names.Read(event.name).contextAttribute) {
        case tarn::ContextAttributeName::ContextId:
            // Nothing in the log is made of it.
            return;
        case tarn::ContextAttributeName::ThreadId: {
            const auto thread = static_cast<uint64>(tarn::IntegerOf(event.value));
            context->threads.Insert(thread);
            context->lastThread = thread;
            return;
        }
        default:
            if (m_records->pendingAttributes.Admits(context->pendingAttributes.size())) {
                context->pendingAttributes.emplace_back(event.name.ToValue(),
                                                        event.value.ToValue());
            } else {
                m_records->pendingAttributes.LeaveOut();
            }
    }
}

void MetricsMonitor::OnAttributePairs(const EventView& event) {
    ContextInfo* const context = m_records->FindContext(event.contextId);
    if (context == nullptr) {
        return;
    }
    const std::shared_ptr<ContextInfo::Layers> layersBefore = context->layers;
    std::optional<tarn::ListName> list;
    try {
        list = m_records->names.Read(event.name).list;
        const Metrics::NameValueList pairs = event.pairs.ToList();
        if (list == tarn::ListName::RequestContextAttributes) {
            AddAttributesToRequestContext(*context, pairs);
        } else if (list == tarn::ListName::MappableContextAttributes) {
            HandleMappableContextAttributes(*context, pairs);
        } else if (list == tarn::ListName::ContextAttributes) {
            AddContextAttributeLayer(*context, pairs);
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
            tarn::TarnSettings::GetInstance().GetEventAttributeMapping(tarn::TextOf(name));
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
        layer.insert_or_assign(tarn::TextOf(name), value);
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
