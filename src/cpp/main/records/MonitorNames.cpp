#include "MonitorNames.h"

#include "ActivityTokenText.h"
#include "ShortText.h"
#include "StaticText.h"
#include "ValueText.h"

#include "tarn/ActivityConfig.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using Metrics::ValueView;

// Texts on the heap lie at least so far apart.
constexpr std::size_t cacheLine = 64;

std::size_t SlotOf(std::string_view bytes, std::size_t slots) noexcept {
    return static_cast<std::size_t>(HashText(bytes) >> 40) % slots;
}

std::size_t SlotOf(const void* text, std::size_t slots) noexcept {
    return reinterpret_cast<std::uintptr_t>(text) / cacheLine % slots;
}

std::optional<TLog::TextView> TextThatIsThere(const MetricsValue& value) noexcept {
    if (value.type == MetricsValue::MV_Utf16String && value.utf16 != nullptr) {
        return std::u16string_view(*value.utf16);
    }
    if (value.type == MetricsValue::MV_Utf8String && value.utf8 != nullptr) {
        return std::string_view(*value.utf8);
    }
    return std::nullopt;
}

/// All of a text, beyond a NUL in it, too. Nothing for what is no text, or must be made first.
std::optional<TLog::TextView> TextThatIsThere(const ValueView& view) noexcept {
    switch (view.GetKind()) {
        case ValueView::Kind::Utf8:
            return view.GetUtf8();
        case ValueView::Kind::Utf16:
            return view.GetUtf16();
        case ValueView::Kind::Static:
            return std::u16string_view(view.GetStatic());
        case ValueView::Kind::Shared:
            return view.GetShared() != nullptr ? std::u16string_view(*view.GetShared())
                                               : std::u16string_view();
        case ValueView::Kind::Value:
            return TextThatIsThere(view.GetValue());
        default:
            return std::nullopt;
    }
}

std::string_view BytesOf(TLog::TextView text) noexcept {
    if (text.IsUtf8()) {
        return text.GetUtf8();
    }
    const std::u16string_view units = text.GetUtf16();
    return {reinterpret_cast<const char*>(units.data()), units.size() * sizeof(char16_t)};
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

MonitorName MonitorNames::Describe(const ValueView& name) const {
    MonitorName described;
    described.text = MakeStaticText(TextOf(name));
    described.list = lists.Find(described.text);
    described.activityAttribute = activityAttributes.Find(described.text);
    described.figure = figures.Find(described.text);
    described.contextAttribute = contextAttributes.Find(described.text);
    described.openingPair = openingPairs.Find(described.text);
    return described;
}

const MonitorName& MonitorNames::ReadAnew(const ValueView& name) {
    const std::optional<TLog::TextView> text = TextThatIsThere(name);
    if (text.has_value()) {
        return ReadRecent(name, *text);
    }
    m_other = Describe(name);
    return m_other;
}

const MonitorName& MonitorNames::ReadStatic(const ValueView& name, const void* text) {
    Static& slot = m_static[SlotOfStatic(text)];
    slot.name = Describe(name);
    slot.text = text;
    return slot.name;
}

const MonitorName& MonitorNames::ReadRecent(const ValueView& name, TLog::TextView text) {
    const std::string_view bytes = BytesOf(text);
    if (bytes.size() > longestKey) {
        m_other = Describe(name);
        return m_other;
    }
    Recent& slot = m_recent[SlotOf(bytes, slots)];
    if (slot.isUtf8 != text.IsUtf8() || !IsSameText({slot.bytes.data(), slot.length}, bytes)) {
        slot.name = Describe(name);
        slot.isUtf8 = text.IsUtf8();
        slot.length = static_cast<uint32>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), slot.bytes.begin());
    }
    return slot.name;
}

ListName MonitorNames::FindListAsSpelled(const ValueView& name) const noexcept {
    if (name.GetKind() == ValueView::Kind::Wide) {
        return lists.FindSpelled(std::wstring_view(name.GetWide()));
    }
    const std::optional<TLog::TextView> text = TextThatIsThere(name);
    if (!text.has_value()) {
        return ListName::Unknown;
    }
    return text->IsUtf8() ? lists.FindSpelled(text->GetUtf8())
                          : lists.FindSpelled(text->GetUtf16());
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
