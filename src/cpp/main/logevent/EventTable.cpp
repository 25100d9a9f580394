#include "EventTable.h"

#include "NeverDestroyed.h"
#include "OptTarnInternal.h"
#include "ValueText.h"

#include <type_traits>
#include <utility>

namespace tarn {
namespace {

using TLog::FieldKind;
using TLog::SlotValue;
using Attribute = ContextAttributeName;
using Input = ActivityEventInput;
using Part = TLog::EventPart;
using Resource = ResourceFigures;
using Sources = FieldSources;
using State = MetricsMonitor::ScopeState;
using Token = TokenStrings;

constexpr Part PartBehind(Part part) {
    return static_cast<Part>(static_cast<uint32>(part) + 1);
}

constexpr Part resourcePart = PartBehind(resultPart);
constexpr Part allocPart = PartBehind(resourcePart);
constexpr Part freePart = PartBehind(allocPart);
constexpr Part kernelPart = PartBehind(freePart);
constexpr Part userPart = PartBehind(kernelPart);

template <class T>
constexpr FieldKind KindOf() {
    if constexpr (std::is_same_v<T, TUUID>) {
        return FieldKind::Uuid;
    } else if constexpr (std::is_integral_v<T>) {
        return FieldKind::Integer;
    } else {
        return std::is_floating_point_v<T> ? FieldKind::Real : FieldKind::Text;
    }
}

template <class T>
SlotValue ToSlot(const T& value) {
    if constexpr (std::is_same_v<T, TUUID>) {
        return &value;
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<int64>(value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return value;
    } else if constexpr (std::is_pointer_v<T>) {
        return TLog::TextView(*value);
    } else {
        return TLog::TextView(value);
    }
}

template <class Member>
const Member& Get(const Sources& sources, Member State::*member) {
    return sources.input.scope.*member;
}

template <class Member>
const Member& Get(const Sources& sources, Member Input::*member) {
    return sources.input.*member;
}

template <auto member>
SlotValue ReadMember(const Sources& sources, std::size_t /*index*/) {
    return ToSlot(Get(sources, member));
}

template <ResourceFigure Resource::*figure, bool isInclusive, class Number>
SlotValue ReadFigure(const Sources& sources, std::size_t /*index*/) {
    const ResourceFigure& read = sources.input.scope.resources.*figure;
    return ToSlot(static_cast<Number>(isInclusive ? read.Inclusive() : read.exclusive));
}

SlotValue ReadPeak(const Sources& sources, std::size_t /*index*/) {
    return static_cast<double>(sources.input.scope.resources.allocatedPeak);
}

SlotValue ReadThreads(const Sources& sources, std::size_t /*index*/) {
    return ToSlot(sources.input.scope.threadIds.Size());
}

SlotValue ReadSupplements(const Sources& sources, std::size_t /*index*/) {
    return &sources.supplements;
}

template <Attribute attribute>
SlotValue ReadAttribute(const Sources& sources, std::size_t /*index*/) {
    return ViewOfText(*sources.input.attributes.Find(attribute));
}

SlotValue ReadEnvironment(const Sources& /*sources*/, std::size_t /*index*/) {
    return ToSlot(OptTarn::ServerEnvironment());
}

SlotValue ReadHost(const Sources& /*sources*/, std::size_t /*index*/) {
    // The host's name does not change while the process lives.
    static const NeverDestroyed<TString> host(OptTarn::HostName());
    return ToSlot(host.Get());
}

SlotValue ReadDefaultSite(const Sources& /*sources*/, std::size_t /*index*/) {
    return ToSlot(OptTarn::DefaultSiteName());
}

SlotValue ReadNothing(const Sources& /*sources*/, std::size_t /*index*/) {
    return int64{0};
}

/// A member of the scope's state or of the input.
template <auto member>
constexpr FieldContent says{
    KindOf<std::remove_cvref_t<decltype(Get(std::declval<Sources&>(), member))>>(),
    &ReadMember<member>};

/// A text of the request, else "-".
template <Attribute attribute>
constexpr FieldContent ofRequest{
    FieldKind::Text, &ReadAttribute<attribute>, nullptr, Part::Inner, fact::Attribute(attribute)};

template <const TString Token::*token>
constexpr FieldContent word{FieldKind::Constant, nullptr, token};

template <Part inner>
constexpr FieldContent object{FieldKind::Object, nullptr, nullptr, inner};

template <ResourceFigure Resource::*figure, class Number = int64>
constexpr FieldContent exclusive{KindOf<Number>(), &ReadFigure<figure, false, Number>};

template <ResourceFigure Resource::*figure, class Number = int64>
constexpr FieldContent inclusive{KindOf<Number>(), &ReadFigure<figure, true, Number>};

using namespace fact;

constexpr FieldRow rows[] = {
    {Part::Activity,
     &Token::requestDescription,
     ofRequest<Attribute::RequestDescription>,
     topOfTrace},
    {Part::Environment,
     &Token::environmentAttr,
     {FieldKind::Text, &ReadEnvironment},
     end | topOfTrace | environment},
    {Part::Environment, &Token::hostAttr, {FieldKind::Text, &ReadHost}, end | topOfTrace},

    // Identity.
    {Part::Activity, &Token::idAttr, says<&State::rootIdText>, foreground | isRoot},
    {Part::Activity, &Token::idAttr, says<&State::ownIdText>, foreground, isRoot},
    {Part::Activity, &Token::rootAttr, says<&State::rootIdText>, foreground, isRoot},
    {Part::Activity, &Token::sponsorAttr, says<&State::rootIdText>, foreground | sponsoredByRoot},
    {Part::Activity,
     &Token::sponsorAttr,
     says<&Input::sponsorText>,
     foreground,
     isRoot | sponsoredByRoot},
    {Part::Activity, &Token::idAttr, says<&State::activityId>, 0, foreground},
    {Part::Activity, &Token::sponsorAttr, says<&Input::sponsorActivityId>, otherSponsor},
    {Part::Activity, &Token::rootAttr, says<&Input::requestActivityId>, otherRoot},
    {Part::Activity, &Token::nameAttr, says<&State::name>},
    {Part::Activity, &Token::depthAttr, says<&State::traceDepth>},
    {Part::Activity, &Token::phaseAttr, word<&Token::beginPhase>, begin},
    {Part::Activity, &Token::phaseAttr, word<&Token::endPhase>, end},
    {Part::Activity, &Token::phaseAttr, word<&Token::noText>, 0, hasBody},
    {Part::Activity, &Token::caller, says<&State::callerText>, caller | foreground},
    {Part::Activity, &Token::caller, says<&State::callerId>, caller, foreground},
    {Part::Activity, &Token::lineNumber, says<&Input::lineNumber>, lineNumber},

    // The request's attributes, which count more than what the layers say.
    {Part::Attributes, &Token::workbookAttr, ofRequest<Attribute::Workbook>, hasBody},
    {Part::Attributes, &Token::viewAttr, ofRequest<Attribute::View>, hasBody},

    // Durations, results and resources.
    {Part::Activity, &Token::elapsedAttr, says<&State::elapsed>, end},
    {Part::Activity, &Token::exclusiveTimeAttr, says<&State::exclusive>, end},
    {Part::Activity, &Token::resultKeyAttr, says<&State::result>, end},
    {Part::Activity, &Token::resultValueAttr, object<resultPart>, end},
    {Part::Activity, &Token::resultCountSponseeErrors, says<&State::sponseeErrors>, sponseeErrors},
    {Part::Activity,
     &Token::resultCountSponseeEarlyTerms,
     says<&State::sponseeEarlyTerminations>,
     sponseeEarlyTerminations},
    {Part::Activity, &Token::resourceSubGroupName, object<resourcePart>, resources},
    {resourcePart, &Token::numberOfThreads, {FieldKind::Integer, &ReadThreads}, processorTime},
    {resourcePart, &Token::allocSubGroupName, object<allocPart>},
    {allocPart, &Token::allocatedExclusiveAttr, exclusive<&Resource::allocatedBytes, double>},
    {allocPart, &Token::allocatedCountExclusiveAttr, exclusive<&Resource::allocationCount>},
    {allocPart, &Token::allocatedInclusiveAttr, inclusive<&Resource::allocatedBytes, double>},
    {allocPart, &Token::allocatedCountInclusiveAttr, inclusive<&Resource::allocationCount>},
    {allocPart, &Token::allocatedPeakAttr, {FieldKind::Real, &ReadPeak}, allMemory},
    {resourcePart, &Token::freeSubGroupName, object<freePart>, allMemory},
    {freePart, &Token::deallocatedExclusiveAttr, exclusive<&Resource::deallocatedBytes, double>},
    {freePart, &Token::deallocatedCountExclusiveAttr, exclusive<&Resource::deallocationCount>},
    {freePart, &Token::deallocatedInclusiveAttr, inclusive<&Resource::deallocatedBytes, double>},
    {freePart, &Token::deallocatedCountInclusiveAttr, inclusive<&Resource::deallocationCount>},
    {resourcePart, &Token::kernelCpuSubGroupName, object<kernelPart>, processorTime},
    {kernelPart, &Token::cpuTimeKernelInclusiveAttr, inclusive<&Resource::kernelTime>},
    {kernelPart, &Token::cpuTimeKernelExclusiveAttr, exclusive<&Resource::kernelTime>},
    {resourcePart, &Token::userCpuSubGroupName, object<userPart>, processorTime},
    {userPart, &Token::cpuTimeUserInclusiveAttr, inclusive<&Resource::userTime>},
    {userPart, &Token::cpuTimeUserExclusiveAttr, exclusive<&Resource::userTime>},

    // What the body has beside the scope's own attributes.
    {Part::Body, &Token::serviceDepthAttr, says<&State::serviceDepth>, hasBody | foreground},
    {Part::Body, &Token::logSupplementsAttr, {FieldKind::Value, &ReadSupplements}, supplements},

    // Whom the event concerns. The request is the one that the scope is known to serve, else the
    // one that its context names, else a fresh one.
    {Part::Session, nullptr, ofRequest<Attribute::SessionId>},
    {Part::Request, nullptr, says<&State::requestText>, knownRequest},
    {Part::Request, nullptr, ofRequest<Attribute::RequestId>, namedRequest},
    {Part::Request,
     nullptr,
     {FieldKind::FreshRequest, &ReadNothing},
     0,
     knownRequest | namedRequest},
    {Part::User, nullptr, ofRequest<Attribute::User>},
    {Part::Site, nullptr, ofRequest<Attribute::Site>, server},
    {Part::Site, nullptr, {FieldKind::Text, &ReadDefaultSite}, 0, server},
};

}  // namespace

std::span<const FieldRow> GetFieldRows() {
    return rows;
}

}  // namespace tarn
