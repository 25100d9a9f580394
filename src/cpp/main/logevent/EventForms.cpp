#include "EventForms.h"

#include "ShortText.h"
#include "StaticText.h"
#include "ValueText.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using Metrics::ValueView;
using TLog::EventPart;
using TLog::FieldKind;
using TLog::FormField;

FieldKind KindOf(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Bool:
            return FieldKind::Boolean;
        case MetricsValue::MV_Double:
            return FieldKind::Real;
        default:
            return IsText(value) ? FieldKind::Text : FieldKind::Integer;
    }
}

FieldKind KindOf(const ValueView& value) {
    switch (value.GetKind()) {
        case ValueView::Kind::Int64:
            return FieldKind::Integer;
        case ValueView::Kind::Bool:
            return FieldKind::Boolean;
        case ValueView::Kind::Double:
            return FieldKind::Real;
        case ValueView::Kind::Value:
            return KindOf(value.GetValue());
        default:
            return FieldKind::Text;
    }
}

/// 0 for a kind that nobody knows.
TLog::SlotValue Read(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return value.integer;
        case MetricsValue::MV_Bool:
            return int64{value.boolean};
        case MetricsValue::MV_Double:
            return value.real;
        default:
            return IsText(value) ? TLog::SlotValue(ViewOfText(value)) : int64{0};
    }
}

TLog::SlotValue Read(const ValueView& value) {
    switch (value.GetKind()) {
        case ValueView::Kind::Int64:
        case ValueView::Kind::Bool:
            return value.GetInteger();
        case ValueView::Kind::Double:
            return value.GetReal();
        case ValueView::Kind::Value:
            return Read(value.GetValue());
        default:
            return ViewOfText(value);
    }
}

TLog::SlotValue ReadLayer(const FieldSources& sources, std::size_t index) {
    return Read(*sources.layers.begin()[static_cast<std::ptrdiff_t>(index)].value);
}

TLog::SlotValue ReadResult(const FieldSources& sources, std::size_t index) {
    return TLog::TextView(*sources.results.begin()[static_cast<std::ptrdiff_t>(index)].value);
}

TLog::SlotValue ReadAttribute(const FieldSources& sources, std::size_t index) {
    return Read(sources.input.scope.attributes.begin()[static_cast<std::ptrdiff_t>(index)].value);
}

TLog::SlotValue ReadOpening(const FieldSources& sources, std::size_t index) {
    return Read(sources.input.opening->begin()[static_cast<std::ptrdiff_t>(index)].value);
}

/// Calls with all that an event has because the host has named it.
template <class Call>
void ForEachNamed(EventFacts facts, const FieldSources& sources, const Call& call) {
    std::size_t index = 0;
    for (const auto& [name, value] : sources.layers) {
        call(EventPart::Attributes, name, KindOf(*value), &ReadLayer, index++);
    }
    index = 0;
    for (const auto& [name, text] : sources.results) {
        call(resultPart, name, FieldKind::Text, &ReadResult, index++);
    }
    index = 0;
    if ((facts & fact::hasBody) == 0) {
        return;
    }
    if (sources.input.opening != nullptr) {
        for (const auto& [name, value] : *sources.input.opening) {
            call(EventPart::Body, name, KindOf(value), &ReadOpening, index++);
        }
    } else {
        for (const auto& [name, value] : sources.input.scope.attributes) {
            call(EventPart::Body, name, KindOf(value), &ReadAttribute, index++);
        }
    }
}

// What a word of a key is, in its lowest bits, unless that is a kind; addresses leave them free.
constexpr uint64 isPart = 6;
constexpr uint64 isSpelled = 7;
static_assert(alignof(std::u16string) >= 8 && static_cast<uint64>(FieldKind::Real) < isPart);

/// Gathers the fields of a form.
class FormMaker {
public:
    explicit FormMaker(EventFacts facts) : m_facts(facts) {}

    void Add(const FieldRow& row) {
        const FieldContent& content = row.content;
        if ((m_facts & row.needs) != row.needs || (m_facts & row.lacks) != 0 ||
            (row.part >= EventPart::Inner && !m_inner.contains(row.part))) {
            return;
        }
        ++m_ownFields;
        const TString name = row.name != nullptr ? Tokens().*row.name : TString();
        if ((m_facts & content.attribute) != content.attribute) {
            m_fields.push_back({row.part, name, FieldKind::Constant, NoText()});
            return;
        }
        const TString constant =
            content.constant != nullptr ? Tokens().*content.constant : TString();
        m_fields.push_back({row.part, name, content.kind, constant, content.inner});
        if (content.kind == FieldKind::Object) {
            m_inner.insert(content.inner);
        } else if (content.value != nullptr) {
            m_slots.push_back({content.value, 0});
        }
    }

    /// What the library says itself counts more than an attribute of the same name.
    void Add(
        EventPart part, const TString& name, FieldKind kind, FieldReader value, std::size_t index) {
        const auto end = m_fields.begin() + static_cast<std::ptrdiff_t>(m_ownFields);
        if (std::none_of(m_fields.begin(), end, [part, &name](const FormField& field) {
                return field.part == part && field.name == name;
            })) {
            m_fields.push_back({part, name, kind});
            m_slots.push_back({value, index});
        }
    }

    std::unique_ptr<const EventForm> Finish(std::vector<uint64> key) {
        return std::make_unique<const EventForm>(
            EventForm{std::move(key), TLog::MakeForm(std::move(m_fields)), std::move(m_slots)});
    }

private:
    const EventFacts m_facts;
    std::vector<FormField> m_fields;
    std::vector<EventForm::Slot> m_slots;
    std::size_t m_ownFields = 0;  ///< those that have a row
    std::set<EventPart> m_inner;  ///< the objects that are there
};

}  // namespace

const EventForm& EventForms::Get(EventFacts facts, const FieldSources& sources) {
    m_unkept.reset();
    MakeKey(facts, sources);
    if (IsKeyTooLong()) {
        m_unkept = Make(facts, sources);
        return *m_unkept;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(m_key.data()),
                                 m_key.size() * sizeof(uint64));
    Set& set = m_sets[HashText(bytes) >> (64 - setBits)];
    for (const auto& known : set) {
        if (known != nullptr && known->key == m_key) {
            return *known;
        }
    }
    // The one that has been there longest goes.
    auto made = Make(facts, sources);
    std::move_backward(set.begin(), set.end() - 1, set.end());
    set.front() = std::move(made);
    return *set.front();
}

// The facts, and the names and kinds of all that the host has named, part by part.
void EventForms::MakeKey(EventFacts facts, const FieldSources& sources) {
    m_key.clear();
    m_key.push_back(facts);
    ForEachNamed(
        facts,
        sources,
        [this](
            EventPart part, const TString& name, FieldKind kind, FieldReader, std::size_t index) {
            if (index == 0) {
                m_key.push_back(static_cast<uint64>(part) << 3 | isPart);
            }
            AddToKey(name, kind);
        });
}

// A static text by its address, which leaves room for the kind; any other one as it is spelled.
void EventForms::AddToKey(const TString& name, FieldKind kind) {
    if (IsKeyTooLong()) {
        return;
    }
    const TString::Characters& characters = name.SharedCharacters();
    if (IsStaticText(characters)) {
        m_key.push_back(reinterpret_cast<std::uintptr_t>(characters.get()) |
                        static_cast<uint64>(kind));
        return;
    }
    m_key.push_back(name.Length() << 3 | isSpelled);
    m_key.push_back(static_cast<uint64>(kind));
    const std::u16string_view text = name.View().substr(0, longestKey);
    m_key.insert(m_key.end(), text.begin(), text.end());
}

std::unique_ptr<const EventForm> EventForms::Make(EventFacts facts,
                                                  const FieldSources& sources) const {
    FormMaker maker(facts);
    for (const FieldRow& row : GetFieldRows()) {
        maker.Add(row);
    }
    ForEachNamed(facts, sources, [&maker](const auto&... named) { maker.Add(named...); });
    return maker.Finish(m_key);
}

}  // namespace tarn
