#include "ActivityLogEventProducer.h"

#include "ActivityTokenText.h"
#include "LogicAssert.h"
#include "NeverDestroyed.h"
#include "OptTarnInternal.h"
#include "ResourceObject.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlsys/TSystem.h"

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using TLog::Literal;
using TLog::NameTable;
using AttributeTable = RequestContextAttributes::Table;

constexpr const char* sourceFile = "src/cpp/main/ActivityLogEventProducer";

void Set(NameTable& table, const TString& name, std::shared_ptr<TLog::Value> value) {
    table.insert_or_assign(name, std::move(value));
}

void SetText(NameTable& table, const TString& name, TString text) {
    Set(table, name, Literal::String(std::move(text)));
}

TString IdText(const TUUID& id) {
    return id.ToString(TUUIDFormatOption::UpperHyphenated);
}

std::shared_ptr<Literal> ToLiteral(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return Literal::Int(value.integer);
        case MetricsValue::MV_Bool:
            return Literal::Bool(value.boolean);
        case MetricsValue::MV_Double:
            return Literal::Double(value.real, 0);
        default:
            // Raises for a kind that is no text either.
            return Literal::String(TarnMetricsUtils::ConvertMetricsValueToTString(value));
    }
}

/// As above, but a kind that nobody knows becomes 0: what a scope says of itself costs no event.
std::shared_ptr<Literal> ToLiteralOrZero(const MetricsValue& value) {
    return value.type <= MetricsValue::MV_Utf16String ? ToLiteral(value) : Literal::Int(0);
}

/// What is the same in many events is made once.
const std::shared_ptr<Literal>& DefaultLiteral() {
    static const NeverDestroyed<std::shared_ptr<Literal>> literal(
        Literal::String(TarnMetricsUtils::DefaultStringAttributeValue()));
    return literal.Get();
}

const std::shared_ptr<Literal>& PhaseLiteral(ActivityPhase phase) {
    static const NeverDestroyed<std::shared_ptr<Literal>> begin(
        Literal::String(Tokens().beginPhase));
    static const NeverDestroyed<std::shared_ptr<Literal>> end(Literal::String(Tokens().endPhase));
    switch (phase) {
        case ActivityPhase::Begin:
            return begin.Get();
        case ActivityPhase::End:
            return end.Get();
        case ActivityPhase::None:
            break;
    }
    return DefaultLiteral();
}

std::shared_ptr<TLog::Object> MakeObject(NameTable fields) {
    static const NeverDestroyed<std::shared_ptr<TLog::Object>> empty(
        TLog::Object::Make(NameTable()));
    return fields.empty() ? empty.Get() : TLog::Object::Make(std::move(fields));
}

/// A text that the request may carry, else "-".
TString TextAttribute(const AttributeTable& attributes, const TString& name) {
    const auto found = attributes.find(name);
    if (found == attributes.end()) {
        return TarnMetricsUtils::DefaultStringAttributeValue();
    }
    const uint32 type = found->second.type;
    if (type != MetricsValue::MV_Utf8String && type != MetricsValue::MV_Utf16String) {
        RaiseLogicAssert(sourceFile, 110, "Unexpected MetricsValue type", 0x710908B6);
    }
    return TarnMetricsUtils::ConvertMetricsValueToTString(found->second);
}

TLog::EventTimePoint ToTimePoint(uint64 microseconds) {
    constexpr uint64 ticksInMicrosecond = 10;
    return TLog::EventTimePoint(
        TLog::EventTimePoint::duration(static_cast<int64>(microseconds * ticksInMicrosecond)));
}

uint32 ProcessIdOf(const AttributeTable& attributes) {
    const auto found = attributes.find(Tokens().pidAttr);
    if (found == attributes.end()) {
        return TSystem::ProcessID();
    }
    return static_cast<uint32>(
        static_cast<uint64>(TarnMetricsUtils::MetricsValueToInt(found->second)));
}

/// The request that the scope is known to serve, else the one that its context names, else a
/// fresh one.
TString RequestTextOf(const ActivityEventInput& input) {
    const TString& none = DefaultLiteral()->GetString();
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
                                    NameTable environment,
                                    NameTable activity,
                                    NameTable attributes) {
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

void AddForegroundIds(NameTable& activity, const ActivityEventInput& input) {
    const TokenStrings& tokens = Tokens();
    const MetricsMonitor::ScopeState& scope = input.scope;
    if (scope.traceDepth <= 0) {
        SetText(activity, tokens.idAttr, scope.rootIdText);
        return;
    }
    SetText(activity, tokens.idAttr, scope.ownIdText);
    SetText(activity, tokens.rootAttr, scope.rootIdText);
    SetText(
        activity, tokens.sponsorAttr, scope.traceDepth == 1 ? scope.rootIdText : input.sponsorText);
}

void AddMonitorIds(NameTable& activity, const ActivityEventInput& input) {
    const TokenStrings& tokens = Tokens();
    const TUUID& own = input.scope.activityId;
    SetText(activity, tokens.idAttr, IdText(own));
    if (input.sponsorActivityId != own) {
        SetText(activity, tokens.sponsorAttr, IdText(input.sponsorActivityId));
    }
    if (input.requestActivityId != own) {
        SetText(activity, tokens.rootAttr, IdText(input.requestActivityId));
    }
}

std::shared_ptr<TLog::Object> MakeSupplement(
    const MetricsMonitor::ScopeState::Supplement& supplement) {
    NameTable fields;
    for (const auto& [name, value] : supplement.pairs) {
        Set(fields, TarnMetricsUtils::MetricsValueToString(name), ToLiteralOrZero(value));
    }
    SetText(
        fields,
        Tokens().beginAttr,
        TLog::EventTimestamp(ToTimePoint(supplement.timeInMicroseconds)).GetFormattedLocalValue());
    return TLog::Object::Make(std::move(fields));
}

}  // namespace

ActivityLogEventProducer::ActivityLogEventProducer(ActivityPhase phase,
                                                   const TString& scopeName,
                                                   bool describesRequest)
    : m_config(phase, scopeName),
      m_hasRequestDescription(describesRequest),
      m_hasHostAndEnvironment(phase == ActivityPhase::End && describesRequest),
      m_hasLogSupplements(phase == ActivityPhase::End),
      m_hasOutcome(phase == ActivityPhase::End),
      m_hasScopeAttributes(phase == ActivityPhase::Begin || phase == ActivityPhase::End),
      m_hasRequestContextAttributes(m_hasScopeAttributes),
      m_eventName(m_config.GetUniqueActivityName()) {}

TLog::Event ActivityLogEventProducer::Produce(const ActivityEventInput& input) const {
    NameTable environment;
    NameTable activity;
    NameTable attributes;
    NameTable body;
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

void ActivityLogEventProducer::AddRequestDescription(NameTable& activity,
                                                     const ActivityEventInput& input) const {
    SetText(activity,
            Tokens().requestDescription,
            TextAttribute(input.attributes, Tokens().requestDescription));
}

void ActivityLogEventProducer::AddHostAndEnvironment(NameTable& environment) const {
    const TString& environmentName = OptTarn::ServerEnvironment();
    if (!environmentName.IsEmpty()) {
        SetText(environment, Tokens().environmentAttr, environmentName);
    }
    // The host's name does not change while the process lives.
    static const NeverDestroyed<std::shared_ptr<Literal>> host(
        Literal::String(OptTarn::HostName()));
    Set(environment, Tokens().hostAttr, host.Get());
}

void ActivityLogEventProducer::AddIdentity(NameTable& activity,
                                           const ActivityEventInput& input) const {
    const TokenStrings& tokens = Tokens();
    if (OptTarn::GetIsForegroundThreadContextEnabled()) {
        AddForegroundIds(activity, input);
    } else {
        AddMonitorIds(activity, input);
    }
    SetText(activity, tokens.nameAttr, input.scope.name);
    Set(activity, tokens.depthAttr, Literal::Int(input.scope.traceDepth));
    Set(activity, tokens.phaseAttr, PhaseLiteral(m_config.GetPhase()));
}

void ActivityLogEventProducer::AddRequestContextAttributes(NameTable& attributes,
                                                           const ActivityEventInput& input) const {
    if (input.layers != nullptr) {
        for (const auto& layer : *input.layers) {
            for (const auto& [name, value] : layer) {
                Set(attributes, name, ToLiteral(value));
            }
        }
    }
    for (const TString* const name : {&Tokens().workbookAttr, &Tokens().viewAttr}) {
        if (input.attributes.find(*name) == input.attributes.end()) {
            Set(attributes, *name, DefaultLiteral());
        } else {
            SetText(attributes, *name, TextAttribute(input.attributes, *name));
        }
    }
}

void ActivityLogEventProducer::AddOutcome(NameTable& activity,
                                          const ActivityEventInput& input) const {
    const TokenStrings& tokens = Tokens();
    const MetricsMonitor::ScopeState& scope = input.scope;
    Set(activity, tokens.elapsedAttr, Literal::Double(scope.elapsed, 0));
    Set(activity, tokens.exclusiveTimeAttr, Literal::Double(scope.exclusive, 0));
    SetText(activity, tokens.resultKeyAttr, scope.result);

    NameTable resultValues;
    for (const auto& [name, text] : scope.resultPairs) {
        SetText(resultValues, name, text);
    }
    Set(activity, tokens.resultValueAttr, MakeObject(std::move(resultValues)));

    if (scope.sponseeErrors > 0) {
        Set(activity, tokens.resultCountSponseeErrors, Literal::Int(scope.sponseeErrors));
    }
    if (scope.sponseeEarlyTerminations > 0) {
        Set(activity,
            tokens.resultCountSponseeEarlyTerms,
            Literal::Int(scope.sponseeEarlyTerminations));
    }
    if (OptTarn::GetIsTarnPlatforms()) {
        Set(activity, tokens.resourceSubGroupName, MakeResourceObject(scope));
    }
}

void ActivityLogEventProducer::AddScopeAttributes(NameTable& body,
                                                  const ActivityEventInput& input) const {
    for (const auto& [name, value] : input.scope.attributes) {
        Set(body, name, ToLiteralOrZero(value));
    }
    if (OptTarn::GetIsForegroundThreadContextEnabled()) {
        Set(body, Tokens().serviceDepthAttr, Literal::Int(input.scope.serviceDepth));
    }
}

void ActivityLogEventProducer::AddLogSupplements(NameTable& body,
                                                 const ActivityEventInput& input) const {
    if (input.scope.supplements.empty()) {
        return;
    }
    std::vector<std::shared_ptr<TLog::Value>> logs;
    logs.reserve(input.scope.supplements.size());
    for (const auto& supplement : input.scope.supplements) {
        logs.push_back(MakeSupplement(supplement));
    }
    Set(body, Tokens().logSupplementsAttr, TLog::Array::Make(std::move(logs)));
}

}  // namespace tarn
