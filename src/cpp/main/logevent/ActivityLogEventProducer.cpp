#include "ActivityLogEventProducer.h"

#include "ActivityTokenText.h"
#include "FlatTable.h"
#include "LogicAssert.h"
#include "NeverDestroyed.h"
#include "OptTarnInternal.h"
#include "ResourceObject.h"
#include "ValueText.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlsys/TSystem.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using TLog::EventBuilder;
using ObjectId = EventBuilder::ObjectId;
using AttributeTable = RequestContextAttributes::Table;

constexpr const char* sourceFile = "src/cpp/main/ActivityLogEventProducer";

// The names of an object's fields differ: what is added below is either a token of its own, or
// comes out of a table.

bool IsText(const MetricsValue& value) {
    return value.type == MetricsValue::MV_Utf8String || value.type == MetricsValue::MV_Utf16String;
}

bool IsKnownKind(const MetricsValue& value) {
    return value.type <= MetricsValue::MV_Utf16String;
}

void RequireKnownKind(const MetricsValue& value) {
    if (!IsKnownKind(value)) {
        static_cast<void>(ViewOfText(value));
    }
}

/// Raises for a kind that nobody knows.
void AddValue(EventBuilder& event,
              ObjectId object,
              const TString& name,
              const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return event.AddInt(object, name, value.integer);
        case MetricsValue::MV_Bool:
            return event.AddBool(object, name, value.boolean);
        case MetricsValue::MV_Double:
            return event.AddDouble(object, name, value.real);
        default:
            return event.AddText(object, name, ViewOfText(value));
    }
}

const TString& WordOf(ActivityPhase phase) {
    switch (phase) {
        case ActivityPhase::Begin:
            return Tokens().beginPhase;
        case ActivityPhase::End:
            return Tokens().endPhase;
        case ActivityPhase::None:
            break;
    }
    return NoText();
}

TLog::TextView RequireText(const MetricsValue& value) {
    if (!IsText(value)) {
        RaiseLogicAssert(sourceFile, 110, "Unexpected MetricsValue type", 0x710908B6);
    }
    return ViewOfText(value);
}

/// A text that the request may carry, else "-".
TLog::TextView TextAttribute(const AttributeTable& attributes, ContextAttributeName name) {
    static const TLog::TextView none(NoText());
    const MetricsValue* const value = attributes.Find(name);
    return value != nullptr ? RequireText(*value) : none;
}

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

/// The request that the scope is known to serve, else the one that its context names, else a
/// fresh one.
void SetRequest(EventBuilder& event, const ActivityEventInput& input) {
    const TString& none = NoText();
    if (input.scope.requestText != none) {
        return event.SetRequest(input.scope.requestText);
    }
    const TLog::TextView named = TextAttribute(input.attributes, ContextAttributeName::RequestId);
    if (named.IsUtf8() ? named.GetUtf8() != "-" : named.GetUtf16() != none.View()) {
        return event.SetRequest(named);
    }
    event.SetFreshRequest();
}

void SetSite(EventBuilder& event, const AttributeTable& attributes) {
    if (OptTarn::GetIsServer()) {
        event.SetSite(TextAttribute(attributes, ContextAttributeName::Site));
    } else {
        event.SetSite(OptTarn::DefaultSiteName());
    }
}

void AddForegroundIds(EventBuilder& event, const ActivityEventInput& input) {
    const TokenStrings& tokens = Tokens();
    const MetricsMonitor::ScopeState& scope = input.scope;
    if (scope.traceDepth <= 0) {
        event.AddText(ObjectId::Activity, tokens.idAttr, scope.rootIdText);
        return;
    }
    event.AddText(ObjectId::Activity, tokens.idAttr, scope.ownIdText);
    event.AddText(ObjectId::Activity, tokens.rootAttr, scope.rootIdText);
    event.AddText(ObjectId::Activity,
                  tokens.sponsorAttr,
                  scope.traceDepth == 1 ? scope.rootIdText : *input.sponsorText);
}

void AddMonitorIds(EventBuilder& event, const ActivityEventInput& input) {
    const TokenStrings& tokens = Tokens();
    const TUUID& own = input.scope.activityId;
    event.AddUuid(ObjectId::Activity, tokens.idAttr, own);
    if (input.sponsorActivityId != own) {
        event.AddUuid(ObjectId::Activity, tokens.sponsorAttr, input.sponsorActivityId);
    }
    if (input.requestActivityId != own) {
        event.AddUuid(ObjectId::Activity, tokens.rootAttr, input.requestActivityId);
    }
}

/// The names of the additional fields.
class AdditionalNames {
    const std::u16string m_caller{u"caller"};
    const std::u16string m_lineNumber{u"seq"};

public:
    const TString caller = TString::ReferTo(m_caller);
    const TString lineNumber = TString::ReferTo(m_lineNumber);
};

/// Who started the scope, unless that is itself or unknown, and the line's number.
void AddAdditionalFields(EventBuilder& event, const ActivityEventInput& input) {
    static const NeverDestroyed<AdditionalNames> names;
    const MetricsMonitor::ScopeState& scope = input.scope;
    if (OptTarn::GetIsForegroundThreadContextEnabled()) {
        const TString& own = scope.traceDepth <= 0 ? scope.rootIdText : scope.ownIdText;
        const TString& caller = scope.callerText;
        if (!caller.IsEmpty() && caller != NoText() && caller != own) {
            event.AddText(ObjectId::Activity, names.Get().caller, caller);
        }
    } else if (scope.callerId != TUUID() && scope.callerId != scope.activityId) {
        event.AddUuid(ObjectId::Activity, names.Get().caller, scope.callerId);
    }
    event.AddInt(ObjectId::Activity, names.Get().lineNumber, static_cast<int64>(input.lineNumber));
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

/// What the layers say of the request, except what is read elsewhere; the upper ones count more.
void AddContextLayers(EventBuilder& event, const MetricsMonitor::ContextInfo::Layers& layers) {
    FlatTable<const MetricsValue*> table;
    for (const auto& layer : layers) {
        for (const auto& [name, value] : layer) {
            // A kind that nobody knows costs the event, even where another layer says something
            // else.
            RequireKnownKind(value);
            if (table.Find(name) == nullptr) {
                table.Set(name, &value);
            }
        }
    }
    for (const auto& [name, value] : table) {
        if (name != Tokens().workbookAttr && name != Tokens().viewAttr) {
            AddValue(event, ObjectId::Attributes, name, *value);
        }
    }
}

std::shared_ptr<TLog::Object> MakeSupplement(
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

}  // namespace

ActivityLogEventProducer::ActivityLogEventProducer(ActivityPhase phase,
                                                   const TString& scopeName,
                                                   bool describesRequest)
    : ActivityLogEventProducer(phase,
                               scopeName,
                               describesRequest,
                               ActivityConfig(phase, scopeName).GetUniqueActivityName()) {}

ActivityLogEventProducer::ActivityLogEventProducer(ActivityPhase phase,
                                                   const TString& scopeName,
                                                   bool describesRequest,
                                                   TString eventName)
    : m_config(phase, scopeName),
      m_hasRequestDescription(describesRequest),
      m_hasHostAndEnvironment(phase == ActivityPhase::End && describesRequest),
      m_hasLogSupplements(phase == ActivityPhase::End),
      m_hasOutcome(phase == ActivityPhase::End),
      m_hasScopeAttributes(phase == ActivityPhase::Begin || phase == ActivityPhase::End),
      m_hasRequestContextAttributes(m_hasScopeAttributes),
      m_eventName(std::move(eventName)) {}

TLog::Event ActivityLogEventProducer::Produce(const ActivityEventInput& input) const {
    EventBuilder event;
    if (m_hasRequestDescription) {
        AddRequestDescription(event, input);
    }
    if (m_hasHostAndEnvironment) {
        AddHostAndEnvironment(event);
    }
    if (m_hasIdentity) {
        AddIdentity(event, input);
    }
    if (m_hasRequestContextAttributes) {
        AddRequestContextAttributes(event, input);
    }
    if (m_hasOutcome) {
        AddOutcome(event, input);
    }
    if (m_hasScopeAttributes) {
        AddScopeAttributes(event, input);
    }
    if (m_hasLogSupplements) {
        AddLogSupplements(event, input);
    }
    // One after the other: the first one that is no text is the one that is complained of.
    event.SetSession(TextAttribute(input.attributes, ContextAttributeName::SessionId));
    SetRequest(event, input);
    event.SetUser(TextAttribute(input.attributes, ContextAttributeName::User));
    SetSite(event, input.attributes);
    return event.Finish(m_eventName,
                        ToTimePoint(input.timeInMicroseconds),
                        ProcessIdOf(input.attributes),
                        input.scope.threadId);
}

void ActivityLogEventProducer::AddRequestDescription(EventBuilder& event,
                                                     const ActivityEventInput& input) const {
    event.AddText(ObjectId::Activity,
                  Tokens().requestDescription,
                  TextAttribute(input.attributes, ContextAttributeName::RequestDescription));
}

void ActivityLogEventProducer::AddHostAndEnvironment(EventBuilder& event) const {
    const TString& environmentName = OptTarn::ServerEnvironment();
    if (!environmentName.IsEmpty()) {
        event.AddText(ObjectId::Environment, Tokens().environmentAttr, environmentName);
    }
    // The host's name does not change while the process lives.
    static const NeverDestroyed<TString> host(OptTarn::HostName());
    event.AddText(ObjectId::Environment, Tokens().hostAttr, host.Get());
}

void ActivityLogEventProducer::AddIdentity(EventBuilder& event,
                                           const ActivityEventInput& input) const {
    const TokenStrings& tokens = Tokens();
    if (OptTarn::GetIsForegroundThreadContextEnabled()) {
        AddForegroundIds(event, input);
    } else {
        AddMonitorIds(event, input);
    }
    // As a view: unlike the other texts that live as long as the process, it says something new
    // with nearly every event.
    event.AddText(ObjectId::Activity, tokens.nameAttr, input.scope.name.View());
    event.AddInt(ObjectId::Activity, tokens.depthAttr, input.scope.traceDepth);
    event.AddText(ObjectId::Activity, tokens.phaseAttr, WordOf(m_config.GetPhase()));
    if (input.lineNumber != 0) {
        AddAdditionalFields(event, input);
    }
}

void ActivityLogEventProducer::AddRequestContextAttributes(EventBuilder& event,
                                                           const ActivityEventInput& input) const {
    if (input.layers != nullptr && !input.layers->IsEmpty()) {
        AddContextLayers(event, *input.layers);
    }
    event.AddText(ObjectId::Attributes,
                  Tokens().workbookAttr,
                  TextAttribute(input.attributes, ContextAttributeName::Workbook));
    event.AddText(ObjectId::Attributes,
                  Tokens().viewAttr,
                  TextAttribute(input.attributes, ContextAttributeName::View));
}

void ActivityLogEventProducer::AddOutcome(EventBuilder& event,
                                          const ActivityEventInput& input) const {
    const TokenStrings& tokens = Tokens();
    const MetricsMonitor::ScopeState& scope = input.scope;
    event.AddDouble(ObjectId::Activity, tokens.elapsedAttr, scope.elapsed);
    event.AddDouble(ObjectId::Activity, tokens.exclusiveTimeAttr, scope.exclusive);
    event.AddText(ObjectId::Activity, tokens.resultKeyAttr, scope.result);

    FlatTable<const TString*> resultValues;
    for (const auto& [name, text] : scope.resultPairs) {
        resultValues.Set(name, &text);
    }
    const ObjectId result = event.AddObject(ObjectId::Activity, tokens.resultValueAttr);
    for (const auto& [name, text] : resultValues) {
        event.AddText(result, name, *text);
    }

    if (scope.sponseeErrors > 0) {
        event.AddInt(ObjectId::Activity, tokens.resultCountSponseeErrors, scope.sponseeErrors);
    }
    if (scope.sponseeEarlyTerminations > 0) {
        event.AddInt(ObjectId::Activity,
                     tokens.resultCountSponseeEarlyTerms,
                     scope.sponseeEarlyTerminations);
    }
    if (OptTarn::GetIsTarnPlatforms()) {
        AddResources(
            event, event.AddObject(ObjectId::Activity, tokens.resourceSubGroupName), scope);
    }
}

void ActivityLogEventProducer::AddScopeAttributes(EventBuilder& event,
                                                  const ActivityEventInput& input) const {
    // What the library says itself counts more than an attribute of the same name.
    const bool saysServiceDepth = OptTarn::GetIsForegroundThreadContextEnabled();
    const bool saysSupplements = m_hasLogSupplements && !input.scope.supplements.empty();
    for (const auto& [name, value] : input.scope.attributes) {
        if ((saysServiceDepth && name == Tokens().serviceDepthAttr) ||
            (saysSupplements && name == Tokens().logSupplementsAttr)) {
            continue;
        }
        if (IsKnownKind(value)) {
            AddValue(event, ObjectId::Body, name, value);
        } else {
            // What a scope says of itself costs no event.
            event.AddInt(ObjectId::Body, name, 0);
        }
    }
    if (saysServiceDepth) {
        event.AddInt(ObjectId::Body, Tokens().serviceDepthAttr, input.scope.serviceDepth);
    }
}

void ActivityLogEventProducer::AddLogSupplements(EventBuilder& event,
                                                 const ActivityEventInput& input) const {
    if (input.scope.supplements.empty()) {
        return;
    }
    std::vector<std::shared_ptr<TLog::Value>> logs;
    logs.reserve(input.scope.supplements.size());
    for (const auto& supplement : input.scope.supplements) {
        logs.push_back(MakeSupplement(supplement));
    }
    event.AddValue(ObjectId::Body, Tokens().logSupplementsAttr, TLog::Array::Make(std::move(logs)));
}

}  // namespace tarn
