#pragma once

#include "NameTables.h"
#include "RequestAttributes.h"
#include "StaticText.h"

#include "tarn/ActivitySchema.h"

#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

/// Names with a fixed meaning and their codes.
template <class Code>
class NameCodes {
public:
    void Add(const TString& name, Code code) { m_codes.emplace_back(name, code); }

    Code Find(const TString& name) const {
        for (const auto& [known, code] : m_codes) {
            if (known == name) {
                return code;
            }
        }
        return Code::Unknown;
    }

    /// For any kind of characters; the known names are ASCII.
    template <class Text>
    Code FindSpelled(const Text& name) const noexcept {
        for (const auto& [known, code] : m_codes) {
            const std::u16string_view view = known.View();
            if (std::equal(name.begin(), name.end(), view.begin(), view.end())) {
                return code;
            }
        }
        return Code::Unknown;
    }

private:
    std::vector<std::pair<TString, Code>> m_codes;
};

/// A name as the monitor works with it: its text, and what it means in each place.
struct MonitorName {
    TString text;
    ListName list = ListName::Unknown;
    ActivityAttributeName activityAttribute = ActivityAttributeName::Unknown;
    FigureName figure = FigureName::Unknown;
    ContextAttributeName contextAttribute = ContextAttributeName::Unknown;
    OpeningPairName openingPair = OpeningPairName::Unknown;
};

/// The names that the monitor treats specially, and the names that it has read lately: the same few
/// come again with every scope. One thread at a time.
class MonitorNames {
public:
    MonitorNames();

    /// The name that an event gives. Valid until the next call.
    const MonitorName& Read(const Metrics::ValueView& name) {
        // A static text is known by its address.
        if (const void* const text = AddressOfStatic(name)) {
            const Static& slot = m_static[SlotOfStatic(text)];
            return slot.text == text ? slot.name : ReadStatic(name, text);
        }
        return ReadAnew(name);
    }

    /// The list that a name means if it is spelled as the token is; needs no memory.
    ListName FindListAsSpelled(const Metrics::ValueView& name) const noexcept;

    /// "begin-" or "end-" and the name.
    TString EventName(ActivityPhase phase, const TString& scopeName);

    NameCodes<ListName> lists;
    NameCodes<ActivityAttributeName> activityAttributes;
    NameCodes<FigureName> figures;
    NameCodes<ContextAttributeName> contextAttributes;
    NameCodes<OpeningPairName> openingPairs;

private:
    static constexpr std::size_t slots = 128;
    static constexpr std::size_t longestKey = 40;

    struct Static {
        const void* text = nullptr;
        MonitorName name;
    };

    // A text that may go is known by its bytes.
    struct Recent {
        bool isUtf8 = false;
        uint32 length = 0;
        std::array<char, longestKey> bytes{};
        MonitorName name;
    };

    // The two events of a scope name, known by its shared characters.
    struct Events {
        TString scopeName;
        std::array<TString, 2> names;
    };

    /// The tokens are adjacent in memory: each gets a slot of its own.
    static std::size_t SlotOfStatic(const void* text) noexcept {
        return reinterpret_cast<std::uintptr_t>(text) / sizeof(std::u16string) % slots;
    }

    /// Null for a text that is not static, and for what is no text in UTF-16.
    static const void* AddressOfStatic(const Metrics::ValueView& name) noexcept {
        switch (name.GetKind()) {
            case Metrics::ValueView::Kind::Static:
                return &name.GetStatic();
            case Metrics::ValueView::Kind::Shared:
                return IsStaticText(name.GetShared()) ? name.GetShared().get() : nullptr;
            case Metrics::ValueView::Kind::Value:
                return name.GetValue().type == Metrics::MetricsValue::MV_Utf16String &&
                               IsStaticText(name.GetValue().utf16)
                           ? name.GetValue().utf16.get()
                           : nullptr;
            default:
                return nullptr;
        }
    }

    const MonitorName& ReadAnew(const Metrics::ValueView& name);
    MonitorName Describe(const Metrics::ValueView& name) const;
    const MonitorName& ReadStatic(const Metrics::ValueView& name, const void* text);
    const MonitorName& ReadRecent(const Metrics::ValueView& name, TLog::TextView text);

    std::array<Static, slots> m_static;
    std::array<Recent, slots> m_recent;
    std::array<Events, slots> m_events;
    MonitorName m_other;
};

}  // namespace tarn
