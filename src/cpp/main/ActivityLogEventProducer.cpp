#include "ActivityLogEventProducer.h"

#include "ActivityTokenText.h"
#include "FlatTable.h"
#include "LogicAssert.h"
#include "NeverDestroyed.h"
#include "OptTarnInternal.h"
#include "ResourceObject.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlsys/TSystem.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using TLog::FieldList;
using TLog::Literal;
using TLog::LiteralContent;
using AttributeTable = RequestContextAttributes::Table;

constexpr const char* sourceFile = "src/cpp/main/ActivityLogEventProducer";

// Of an end event without resource figures and sponsees' failures.
constexpr std::size_t mostActivityFields = 12;

// The names of a list's fields differ: what is added below is either a token of its own, or comes
// out of a table.

void Add(FieldList& fields, const TString& name, LiteralContent literal) {
    fields.emplace_back(name, std::move(literal));
}

void AddShared(FieldList& fields, const TString& name, std::shared_ptr<TLog::Value> value) {
    fields.emplace_back(name, std::move(value));
}

void AddText(FieldList& fields, const TString& name, TString text) {
    Add(fields, name, LiteralContent::String(std::move(text)));
}

void AddAll(FieldList& fields, const FlatTable<LiteralContent>& table) {
    fields.reserve(fields.size() + table.Size());
    for (const auto& [name, literal] : table) {
        Add(fields, name, literal);
    }
}

TString IdText(const TUUID& id) {
    return id.ToString(TUUIDFormatOption::UpperHyphenated);
}

LiteralContent ToLiteral(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return LiteralContent::Int(value.integer);
        case MetricsValue::MV_Bool:
            return LiteralContent::Bool(value.boolean);
        case MetricsValue::MV_Double:
            return LiteralContent::Double(value.real, 0);
        default:
            // Raises for a kind that is no text either.
            return LiteralContent::String(TarnMetricsUtils::ConvertMetricsValueToTString(value));
    }
}

/// As above, but a kind that nobody knows becomes 0: what a scope says of itself costs no event.
LiteralContent ToLiteralOrZero(const MetricsValue& value) {
    return value.type <= MetricsValue::MV_Utf16String ? ToLiteral(value) : LiteralContent::Int(0);
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

std::shared_ptr<TLog::Object> MakeObject(FieldList fields) {
    static const NeverDestroyed<std::shared_ptr<TLog::Object>> empty(
        TLog::Object::MakeOfList(FieldList()));
    return fields.empty() ? empty.Get() : TLog::Object::MakeOfList(std::move(fields));
}

/// A text that the request may carry, else "-".
TString TextAttribute(const AttributeTable& attributes, const TString& name) {
    const MetricsValue* const value = attributes.Find(name);
    if (value == nullptr) {
        return NoText();
    }
    if (value->type != MetricsValue::MV_Utf8String && value->type != MetricsValue::MV_Utf16String) {
        RaiseLogicAssert(sourceFile, 110, "Unexpected MetricsValue type", 0x710908B6);
    }
    return TarnMetricsUtils::ConvertMetricsValueToTString(*value);
}

TLog::EventTimePoint ToTimePoint(uint64 microseconds) {
    constexpr uint64 ticksInMicrosecond = 10;
    return TLog::EventTimePoint(
        TLog::EventTimePoint::duration(static_cast<int64>(microseconds * ticksInMicrosecond)));
}

uint32 ProcessIdOf(const AttributeTable& attributes) {
    const MetricsValue* const value = attributes.Find(Tokens().pidAttr);
    return value == nullptr ? TSystem::ProcessID()
                            : static_cast<uint32>(
                                  static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(*value)));
}

/// The request that the scope is known to serve, else the one that its context names, else a
/// fresh one.
TString RequestTextOf(const ActivityEventInput& input) {
    const TString& none = NoText();
    TString request = input.scope.requestText;
    if (request == none) {
        request = TextAttribute(input.attributes, Tokens().ridAttr);
    }
    if (request == none) {
        request = TLog::ActivityInfoFactory::CreateActivityInfo(0, none).GetRequestId();
    }
    return request;
}

TString SiteOf(const AttributeTable& attributes) {
    return OptTarn::GetIsServer() ? TextAttribute(attributes, Tokens().siteAttr)
                                  : OptTarn::DefaultSiteName();
}

TLog::ActivityInfo MakeActivityInfo(const ActivityEventInput& input,
                                    FieldList environment,
                                    FieldList activity,
                                    FieldList attributes) {
    // Read one after the other: the first one that is no text is the one that is complained of.
    const uint32 processId = ProcessIdOf(input.attributes);
    TString session = TextAttribute(input.attributes, Tokens().sidAttr);
    TString request = RequestTextOf(input);
    TString user = TextAttribute(input.attributes, Tokens().userAttr);
    TString site = SiteOf(input.attributes);
    return TLog::ActivityInfo(ToTimePoint(input.timeInMicroseconds),
                              processId,
                              input.scope.threadId,
                              std::move(session),
                              std::move(request),
                              std::move(user),
                              std::move(site),
                              MakeObject(std::move(environment)),
                              MakeObject(std::move(activity)),
                              MakeObject(std::move(attributes)));
}

void AddForegroundIds(FieldList& activity, const ActivityEventInput& input) {
    const TokenStrings& tokens = Tokens();
    const MetricsMonitor::ScopeState& scope = input.scope;
    if (scope.traceDepth <= 0) {
        AddText(activity, tokens.idAttr, scope.rootIdText);
        return;
    }
    AddText(activity, tokens.idAttr, scope.ownIdText);
    AddText(activity, tokens.rootAttr, scope.rootIdText);
    AddText(
        activity, tokens.sponsorAttr, scope.traceDepth == 1 ? scope.rootIdText : input.sponsorText);
}

void AddMonitorIds(FieldList& activity, const ActivityEventInput& input) {
    const TokenStrings& tokens = Tokens();
    const TUUID& own = input.scope.activityId;
    AddText(activity, tokens.idAttr, IdText(own));
    if (input.sponsorActivityId != own) {
        AddText(activity, tokens.sponsorAttr, IdText(input.sponsorActivityId));
    }
    if (input.requestActivityId != own) {
        AddText(activity, tokens.rootAttr, IdText(input.requestActivityId));
    }
}

std::shared_ptr<TLog::Object> MakeSupplement(
    const MetricsMonitor::ScopeState::Supplement& supplement) {
    FlatTable<LiteralContent> table;
    for (const auto& [name, value] : supplement.pairs) {
        table.Set(TarnMetricsUtils::MetricsValueToString(name), ToLiteralOrZero(value));
    }
    table.Set(
        Tokens().beginAttr,
        LiteralContent::String(TLog::EventTimestamp(ToTimePoint(supplement.timeInMicroseconds))
                                   .GetFormattedLocalValue()));
    FieldList fields;
    AddAll(fields, table);
    return TLog::Object::MakeOfList(std::move(fields));
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
    FieldList environment;
    FieldList activity;
    FieldList attributes;
    FieldList body;
    activity.reserve(mostActivityFields);
    if (m_hasRequestDescription) {
        AddRequestDescription(activity, input);
    }
    if (m_hasHostAndEnvironment) {
        AddHostAndEnvironment(environment);
    }
    if (m_hasIdentity) {
        AddIdentity(activity, input);
    }
    if (m_hasRequestContextAttributes) {
        AddRequestContextAttributes(attributes, input);
    }
    if (m_hasOutcome) {
        AddOutcome(activity, input);
    }
    if (m_hasScopeAttributes) {
        AddScopeAttributes(body, input);
    }
    if (m_hasLogSupplements) {
        AddLogSupplements(body, input);
    }
    TLog::ActivityInfo information =
        MakeActivityInfo(input, std::move(environment), std::move(activity), std::move(attributes));
    return TLog::Event(m_eventName, MakeObject(std::move(body)), std::move(information));
}

void ActivityLogEventProducer::AddRequestDescription(FieldList& activity,
                                                     const ActivityEventInput& input) const {
    AddText(activity,
            Tokens().requestDescription,
            TextAttribute(input.attributes, Tokens().requestDescription));
}

void ActivityLogEventProducer::AddHostAndEnvironment(FieldList& environment) const {
    const TString& environmentName = OptTarn::ServerEnvironment();
    if (!environmentName.IsEmpty()) {
        AddText(environment, Tokens().environmentAttr, environmentName);
    }
    // The host's name does not change while the process lives.
    static const NeverDestroyed<TString> host(OptTarn::HostName());
    AddText(environment, Tokens().hostAttr, host.Get());
}

void ActivityLogEventProducer::AddIdentity(FieldList& activity,
                                           const ActivityEventInput& input) const {
    const TokenStrings& tokens = Tokens();
    if (OptTarn::GetIsForegroundThreadContextEnabled()) {
        AddForegroundIds(activity, input);
    } else {
        AddMonitorIds(activity, input);
    }
    AddText(activity, tokens.nameAttr, input.scope.name);
    Add(activity, tokens.depthAttr, LiteralContent::Int(input.scope.traceDepth));
    AddText(activity, tokens.phaseAttr, WordOf(m_config.GetPhase()));
}

void ActivityLogEventProducer::AddRequestContextAttributes(FieldList& attributes,
                                                           const ActivityEventInput& input) const {
    const TString& workbook = Tokens().workbookAttr;
    const TString& view = Tokens().viewAttr;
    if (input.layers == nullptr || input.layers->empty()) {
        attributes.reserve(2);
        AddText(attributes, workbook, TextAttribute(input.attributes, workbook));
        AddText(attributes, view, TextAttribute(input.attributes, view));
        return;
    }
    FlatTable<LiteralContent> table;
    for (const auto& layer : *input.layers) {
        for (const auto& [name, value] : layer) {
            table.Set(name, ToLiteral(value));
        }
    }
    for (const TString* const name : {&workbook, &view}) {
        table.Set(*name, LiteralContent::String(TextAttribute(input.attributes, *name)));
    }
    AddAll(attributes, table);
}

void ActivityLogEventProducer::AddOutcome(FieldList& activity,
                                          const ActivityEventInput& input) const {
    const TokenStrings& tokens = Tokens();
    const MetricsMonitor::ScopeState& scope = input.scope;
    Add(activity, tokens.elapsedAttr, LiteralContent::Double(scope.elapsed, 0));
    Add(activity, tokens.exclusiveTimeAttr, LiteralContent::Double(scope.exclusive, 0));
    AddText(activity, tokens.resultKeyAttr, scope.result);

    FlatTable<LiteralContent> resultValues;
    for (const auto& [name, text] : scope.resultPairs) {
        resultValues.Set(name, LiteralContent::String(text));
    }
    FieldList resultFields;
    AddAll(resultFields, resultValues);
    AddShared(activity, tokens.resultValueAttr, MakeObject(std::move(resultFields)));

    if (scope.sponseeErrors > 0) {
        Add(activity, tokens.resultCountSponseeErrors, LiteralContent::Int(scope.sponseeErrors));
    }
    if (scope.sponseeEarlyTerminations > 0) {
        Add(activity,
            tokens.resultCountSponseeEarlyTerms,
            LiteralContent::Int(scope.sponseeEarlyTerminations));
    }
    if (OptTarn::GetIsTarnPlatforms()) {
        AddShared(activity, tokens.resourceSubGroupName, MakeResourceObject(scope));
    }
}

void ActivityLogEventProducer::AddScopeAttributes(FieldList& body,
                                                  const ActivityEventInput& input) const {
    // What the library says itself counts more than an attribute of the same name.
    const bool saysServiceDepth = OptTarn::GetIsForegroundThreadContextEnabled();
    const bool saysSupplements = m_hasLogSupplements && !input.scope.supplements.empty();
    body.reserve(input.scope.attributes.Size() + 2);
    for (const auto& [name, value] : input.scope.attributes) {
        if ((saysServiceDepth && name == Tokens().serviceDepthAttr) ||
            (saysSupplements && name == Tokens().logSupplementsAttr)) {
            continue;
        }
        Add(body, name, ToLiteralOrZero(value));
    }
    if (saysServiceDepth) {
        Add(body, Tokens().serviceDepthAttr, LiteralContent::Int(input.scope.serviceDepth));
    }
}

void ActivityLogEventProducer::AddLogSupplements(FieldList& body,
                                                 const ActivityEventInput& input) const {
    if (input.scope.supplements.empty()) {
        return;
    }
    std::vector<std::shared_ptr<TLog::Value>> logs;
    logs.reserve(input.scope.supplements.size());
    for (const auto& supplement : input.scope.supplements) {
        logs.push_back(MakeSupplement(supplement));
    }
    AddShared(body, Tokens().logSupplementsAttr, TLog::Array::Make(std::move(logs)));
}

}  // namespace tarn
