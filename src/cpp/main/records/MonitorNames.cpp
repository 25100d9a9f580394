#include "MonitorNames.h"

#include "ActivityTokenText.h"
#include "ShortText.h"
#include "StaticText.h"

#include "tarn/ActivityConfig.h"
#include "tarn/TarnMetricsUtils.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

namespace tarn {
namespace {

using Metrics::MetricsValue;

// Texts on the heap lie at least so far apart.
constexpr std::size_t cacheLine = 64;

std::size_t SlotOf(std::string_view bytes, std::size_t slots) noexcept {
    return static_cast<std::size_t>(HashText(bytes) >> 40) % slots;
}

std::size_t SlotOf(const void* text, std::size_t slots) noexcept {
    return reinterpret_cast<std::uintptr_t>(text) / cacheLine % slots;
}

}  // namespace

MonitorNames::MonitorNames() {
    const auto& tokens = Tokens();

#define TARN_ADD_OPENING_PAIR(name, token) openingPairs.Add(tokens.token, OpeningPairName::name);
    TARN_OPENING_PAIR_NAMES(TARN_ADD_OPENING_PAIR)
#undef TARN_ADD_OPENING_PAIR

#define TARN_ADD_LIST(name, token) lists.Add(tokens.token, ListName::name);
    TARN_LIST_NAMES(TARN_ADD_LIST)
#undef TARN_ADD_LIST

#define TARN_ADD_ACTIVITY_ATTRIBUTE(name, token) \
    activityAttributes.Add(tokens.token, ActivityAttributeName::name);
    TARN_ACTIVITY_ATTRIBUTE_NAMES(TARN_ADD_ACTIVITY_ATTRIBUTE)
#undef TARN_ADD_ACTIVITY_ATTRIBUTE

#define TARN_ADD_FIGURE(name, token) figures.Add(tokens.token, FigureName::name);
    TARN_FIGURE_NAMES(TARN_ADD_FIGURE)
#undef TARN_ADD_FIGURE

#define TARN_ADD_REQUEST_ATTRIBUTE(name, token, kind) \
    contextAttributes.Add(tokens.token, ContextAttributeName::name);
    TARN_REQUEST_ATTRIBUTES(TARN_ADD_REQUEST_ATTRIBUTE)
#undef TARN_ADD_REQUEST_ATTRIBUTE
}

MonitorName MonitorNames::Describe(const MetricsValue& name) const {
    MonitorName described;
    described.text = MakeStaticText(TarnMetricsUtils::MetricsValueToString(name));
    described.list = lists.Find(described.text);
    described.activityAttribute = activityAttributes.Find(described.text);
    described.figure = figures.Find(described.text);
    described.contextAttribute = contextAttributes.Find(described.text);
    described.openingPair = openingPairs.Find(described.text);
    return described;
}

const MonitorName& MonitorNames::ReadAnew(const MetricsValue& name) {
    if (name.type == MetricsValue::MV_Utf16String && name.utf16 != nullptr) {
        if (IsStaticText(name.utf16)) {
            return ReadStatic(name, name.utf16.get());
        }
        return ReadRecent(name,
                          {reinterpret_cast<const char*>(name.utf16->data()),
                           name.utf16->size() * sizeof(char16_t)});
    }
    if (name.type == MetricsValue::MV_Utf8String && name.utf8 != nullptr) {
        if (IsStaticText(name.utf8)) {
            return ReadStatic(name, name.utf8.get());
        }
        return ReadRecent(name, *name.utf8);
    }
    m_other = Describe(name);
    return m_other;
}

const MonitorName& MonitorNames::ReadStatic(const MetricsValue& name, const void* text) {
    Static& slot = m_static[SlotOfStatic(text)];
    if (slot.text != text) {
        slot.name = Describe(name);
        slot.text = text;
    }
    return slot.name;
}

const MonitorName& MonitorNames::ReadRecent(const MetricsValue& name, std::string_view bytes) {
    if (bytes.size() > longestKey) {
        m_other = Describe(name);
        return m_other;
    }
    Recent& slot = m_recent[SlotOf(bytes, slots)];
    if (slot.type != name.type || !IsSameText({slot.bytes.data(), slot.length}, bytes)) {
        slot.name = Describe(name);
        slot.type = name.type;
        slot.length = static_cast<uint32>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), slot.bytes.begin());
    }
    return slot.name;
}

ListName MonitorNames::FindListAsSpelled(const MetricsValue& name) const noexcept {
    if (name.type == MetricsValue::MV_Utf16String && name.utf16 != nullptr) {
        return lists.FindSpelled(*name.utf16);
    }
    if (name.type == MetricsValue::MV_Utf8String && name.utf8 != nullptr) {
        return lists.FindSpelled(*name.utf8);
    }
    return ListName::Unknown;
}

TString MonitorNames::EventName(ActivityPhase phase, const TString& scopeName) {
    const bool isKnownPhase = phase == ActivityPhase::Begin || phase == ActivityPhase::End;
    if (!isKnownPhase || scopeName.SharedCharacters() == nullptr) {
        return ActivityConfig(phase, scopeName).GetUniqueActivityName();
    }
    const void* const characters = scopeName.SharedCharacters().get();
    Events& slot = m_events[SlotOf(characters, slots)];
    if (slot.scopeName.SharedCharacters() != scopeName.SharedCharacters()) {
        std::array<TString, 2> names{
            MakeStaticText(ActivityConfig(ActivityPhase::Begin, scopeName).GetUniqueActivityName()),
            MakeStaticText(ActivityConfig(ActivityPhase::End, scopeName).GetUniqueActivityName())};
        slot.names = std::move(names);
        slot.scopeName = scopeName;
    }
    return slot.names[phase == ActivityPhase::Begin ? 0 : 1];
}

}  // namespace tarn
