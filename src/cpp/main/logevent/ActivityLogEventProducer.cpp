#include "ActivityLogEventProducer.h"

#include "ActivityTokenText.h"
#include "LogicAssert.h"
#include "ValueText.h"

#include "tarn/TarnMetricsUtils.h"

#include "cvlsys/TSystem.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using AttributeTable = RequestContextAttributes::Table;

// A huge event shall not keep its memory for good.
constexpr std::size_t mostValuesKept = 1024;

constexpr const char* sourceFile = "src/cpp/main/ActivityLogEventProducer";

TLog::EventTimePoint ToTimePoint(uint64 microseconds) {
    constexpr uint64 ticksInMicrosecond = 10;
    return TLog::EventTimePoint(
        TLog::EventTimePoint::duration(static_cast<int64>(microseconds * ticksInMicrosecond)));
}

uint32 ProcessIdOf(const AttributeTable& attributes) {
    const MetricsValue* const value = attributes.Find(ContextAttributeName::ProcessId);
    return value == nullptr ? TSystem::ProcessID()
                            : static_cast<uint32>(
                                  static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(*value)));
}

void RequireText(const AttributeTable& attributes, ContextAttributeName name) {
    const MetricsValue* const value = attributes.Find(name);
    if (value != nullptr && !IsText(*value)) {
        RaiseLogicAssert(sourceFile, 110, "Unexpected MetricsValue type", 0x710908B6);
    }
}

/// What the layers say together; the upper ones count more.
void GatherLayers(FieldSources& sources) {
    if (sources.input.layers == nullptr) {
        return;
    }
    for (const auto& layer : *sources.input.layers) {
        for (const auto& [name, value] : layer) {
            // A kind that nobody knows costs the event, even where another layer says something
            // else.
            if (value.type > MetricsValue::MV_Utf16String) {
                static_cast<void>(ViewOfText(value));
            }
            if (sources.layers.Find(name) == nullptr) {
                sources.layers.Set(name, &value);
            }
        }
    }
}

/// The error names the first attribute that must be text and is not, or is of an unknown kind.
void RequireTextsAndGatherLayers(EventFacts facts, FieldSources& sources) {
    const AttributeTable& attributes = sources.input.attributes;
    if (attributes.GetPresent() == 0 && sources.input.layers == nullptr) {
        return;
    }
    if ((facts & fact::topOfTrace) != 0) {
        RequireText(attributes, ContextAttributeName::RequestDescription);
    }
    if ((facts & fact::hasBody) != 0) {
        GatherLayers(sources);
        RequireText(attributes, ContextAttributeName::Workbook);
        RequireText(attributes, ContextAttributeName::View);
    }
    RequireText(attributes, ContextAttributeName::SessionId);
    if ((facts & fact::knownRequest) == 0) {
        RequireText(attributes, ContextAttributeName::RequestId);
    }
    RequireText(attributes, ContextAttributeName::User);
    if ((facts & fact::server) != 0) {
        RequireText(attributes, ContextAttributeName::Site);
    }
}

std::shared_ptr<TLog::Literal> ToLiteral(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return TLog::Literal::Int(value.integer);
        case MetricsValue::MV_Bool:
            return TLog::Literal::Bool(value.boolean);
        case MetricsValue::MV_Double:
            return TLog::Literal::Double(value.real, 0);
        case MetricsValue::MV_Utf8String:
        case MetricsValue::MV_Utf16String:
            return TLog::Literal::String(TarnMetricsUtils::ConvertMetricsValueToTString(value));
        default:
            return TLog::Literal::Int(0);
    }
}

std::shared_ptr<TLog::Value> MakeSupplement(
    const MetricsMonitor::ScopeState::Supplement& supplement) {
    TLog::NameTable table;
    for (const auto& [name, value] : supplement.pairs) {
        table.insert_or_assign(TarnMetricsUtils::MetricsValueToString(name), ToLiteral(value));
    }
    table.insert_or_assign(
        Tokens().beginAttr,
        TLog::Literal::String(TLog::EventTimestamp(ToTimePoint(supplement.timeInMicroseconds))
                                  .GetFormattedLocalValue()));
    return TLog::Object::Make(std::move(table));
}

void GatherOutcome(FieldSources& sources) {
    const MetricsMonitor::ScopeState& scope = sources.input.scope;
    for (const auto& [name, text] : scope.resultPairs) {
        sources.results.Set(name, &text);
    }
    if (scope.supplements.empty()) {
        return;
    }
    std::vector<std::shared_ptr<TLog::Value>> logs;
    logs.reserve(scope.supplements.size());
    for (const auto& supplement : scope.supplements) {
        logs.push_back(MakeSupplement(supplement));
    }
    sources.supplements = TLog::Array::Make(std::move(logs));
}

}  // namespace

TLog::Event ActivityLogEventProducer::Produce(ActivityPhase phase,
                                              TString eventName,
                                              const ActivityEventInput& input) {
    const EventFacts facts = FindFacts(phase, input);
    FieldSources sources{input, {}, {}, {}};
    RequireTextsAndGatherLayers(facts, sources);
    if ((facts & fact::end) != 0) {
        GatherOutcome(sources);
    }
    const EventForm& form = m_forms.Get(facts, sources);
    if (m_values.size() > mostValuesKept) {
        m_values = std::vector<TLog::SlotValue>();
    }
    if (m_values.size() < form.slots.size()) {
        m_values.resize(form.slots.size(), int64{0});
    }
    TLog::SlotValue* value = m_values.data();
    for (const EventForm::Slot& slot : form.slots) {
        *value++ = slot.value(sources, slot.index);
    }
    return TLog::MakeEvent(form.form,
                           {std::move(eventName),
                            ToTimePoint(input.timeInMicroseconds),
                            ProcessIdOf(input.attributes),
                            input.scope.threadId},
                           m_values.data());
}

}  // namespace tarn
