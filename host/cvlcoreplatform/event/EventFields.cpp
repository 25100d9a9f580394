#include "EventFields.h"

#include <cstddef>

namespace TLog {

namespace {

using Kind = GatheredPlace::Kind;
using ObjectId = EventBuilder::ObjectId;

TString ToText(const GatheredText& text) {
    return text.IsPlain() ? TString::FromUtf8(text.Plain().View()) : TString(text.Units());
}

/// One of the texts in the head.
TString HeadText(const GatheredFields& gathered, const TString& name) {
    const auto places = gathered.GetPlaces();
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (places[i].object == GatheredFields::head && places[i].Name() == name.View()) {
            return ToText(gathered.GetValues()[i].text);
        }
    }
    return TString();
}

/// Those in the head that have no place of their own; null where there are none.
std::shared_ptr<Object> FurtherFields(const GatheredFields& gathered) {
    const auto places = gathered.GetPlaces();
    NameTable table;
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (places[i].object == GatheredFields::head && IsFurtherField(places[i].Name())) {
            table.insert_or_assign(TString(places[i].Name()),
                                   Literal::String(ToText(gathered.GetValues()[i].text)));
        }
    }
    return table.empty() ? nullptr : Object::Make(std::move(table));
}

/// Makes the values of gathered fields, and puts each into the table of its object.
class ValueMaker {
public:
    explicit ValueMaker(const GatheredFields& gathered)
        : m_gathered(gathered),
          m_tables(gathered.CountObjects()) {
        // An object's fields come after the object itself: from behind, it is complete when its
        // turn comes. Of two fields of one name, the last one stays.
        const auto places = gathered.GetPlaces();
        const std::vector<TString> names = gathered.GetFieldNames();
        for (std::size_t i = places.size(); i-- != 0;) {
            const GatheredPlace& place = places[i];
            if (place.object != GatheredFields::head) {
                TableOf(place.object)
                    .emplace(names[i], ToValue(place.kind, gathered.GetValues()[i]));
            }
        }
    }

    std::shared_ptr<Object> Take(ObjectId object) {
        return Object::Make(std::move(TableOf(object)));
    }

private:
    NameTable& TableOf(ObjectId object) { return m_tables[static_cast<std::size_t>(object)]; }

    std::shared_ptr<Value> ToValue(Kind kind, const GatheredValue& value) {
        switch (kind) {
            case Kind::Integer:
                return Literal::Int(value.integer);
            case Kind::Boolean:
                return Literal::Bool(value.integer != 0);
            case Kind::Double:
                return Literal::Double(value.real, 0);
            case Kind::Text:
            case Kind::Constant:
                return Literal::String(ToText(value.text));
            case Kind::Object:
                return Take(value.child);
            case Kind::Shared:
                break;
        }
        return m_gathered.GetShared(value);
    }

    const GatheredFields& m_gathered;
    std::vector<NameTable> m_tables;
};

}  // namespace

std::vector<TString> GatheredFields::GetFieldNames() const {
    std::vector<TString> names;
    names.reserve(m_count);
    auto owned = m_names.begin();
    for (const GatheredPlace& place : GetPlaces()) {
        if (owned != m_names.end() && owned->field == names.size()) {
            names.push_back(owned->name);
            ++owned;
        } else {
            names.push_back(place.name != nullptr ? TString::ReferTo(*place.name) : TString());
        }
    }
    return names;
}

EventValues GatheredFields::ToValues() const {
    ValueMaker values(*this);
    // Named, as it is not said which argument is made first.
    auto environment = values.Take(ObjectId::Environment);
    auto activity = values.Take(ObjectId::Activity);
    auto attributes = values.Take(ObjectId::Attributes);
    ActivityInfo information(time,
                             processId,
                             threadId,
                             HeadText(*this, GetHeadNames().session),
                             HeadText(*this, GetHeadNames().request),
                             HeadText(*this, GetHeadNames().user),
                             HeadText(*this, GetHeadNames().site),
                             std::move(environment),
                             std::move(activity),
                             std::move(attributes));
    if (std::shared_ptr<Object> further = FurtherFields(*this)) {
        information = information.WithFurtherFields(std::move(further));
    }
    return {values.Take(ObjectId::Body), std::move(information)};
}

}  // namespace TLog
