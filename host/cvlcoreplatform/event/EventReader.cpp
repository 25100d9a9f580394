#include "cvlcoreplatform/host/EventReader.h"

#include "FormedEvent.h"

#include <unordered_map>
#include <utility>

namespace TLog {
namespace {

// A program has a few dozen forms. One that makes them without end shall not keep them all.
constexpr std::size_t mostForms = 1024;

constexpr std::size_t absent = static_cast<std::size_t>(-1);

ReadField ReadText(TextView text) {
    ReadField read;
    read.kind = ReadField::Kind::Text;
    read.text = text;
    return read;
}

ReadField ReadSlot(FieldKind kind, const StoredValue& value) {
    ReadField read;
    if (IsText(kind)) {
        return ReadText(value.text.IsPlain() ? TextView(value.text.Plain().View())
                                             : TextView(value.text.Units()));
    }
    switch (kind) {
        case FieldKind::Integer:
        case FieldKind::Boolean:
            read.kind = ReadField::Kind::Integer;
            read.integer = value.integer;
            break;
        case FieldKind::Real:
            read.kind = ReadField::Kind::Real;
            read.real = value.real;
            break;
        default:
            read.kind = ReadField::Kind::Other;
            break;
    }
    return read;
}

}  // namespace

/// Where a form has the fields.
struct EventReader::Places {
    struct Place {
        std::size_t field = absent;
        std::size_t slot = absent;  ///< without one the form says it all
    };

    // Shared, so that no other one gets the address of one that is known.
    std::shared_ptr<const Form> form;
    std::vector<Place> places;
};

struct EventReader::KnownForms {
    std::unordered_map<const Form*, Places> places;
};

EventReader::EventReader(std::vector<Field> fields)
    : m_fields(std::move(fields)),
      m_known(std::make_unique<KnownForms>()) {}

EventReader::~EventReader() = default;

const EventReader::Places& EventReader::PlacesIn(const std::shared_ptr<const Form>& form) {
    auto& places = m_known->places;
    if (const auto known = places.find(form.get()); known != places.end()) {
        return known->second;
    }
    if (places.size() >= mostForms) {
        places.clear();
    }
    Places found{form, std::vector<Places::Place>(m_fields.size())};
    std::size_t slot = 0;
    for (std::size_t index = 0; index < form->GetFields().size(); ++index) {
        const FormField& field = form->GetFields()[index];
        const bool hasSlot = HasSlot(field.kind);
        for (std::size_t asked = 0; asked < m_fields.size(); ++asked) {
            if (m_fields[asked].part == field.part && m_fields[asked].name == field.name) {
                found.places[asked] = {index, hasSlot ? slot : absent};
            }
        }
        slot += hasSlot ? 1 : 0;
    }
    return places.emplace(form.get(), std::move(found)).first->second;
}

bool EventReader::Read(const Event& event, ReadField* values, ReadHead& head) {
    const FormedEvent* const formed = AsFormed(event.GetFields());
    if (formed == nullptr) {
        return false;
    }
    for (const Places::Place& place : PlacesIn(formed->ShareForm()).places) {
        ReadField& value = *values++;
        if (place.field == absent) {
            value = ReadField();
            continue;
        }
        const FormField& field = formed->GetForm().GetFields()[place.field];
        if (place.slot != absent) {
            value = ReadSlot(field.kind, formed->GetValues()[place.slot]);
        } else if (field.kind == FieldKind::Constant) {
            value = ReadText(field.constant);
        } else {
            value.kind = ReadField::Kind::Other;
        }
    }
    head = {formed->time, formed->CountBytes()};
    return true;
}

}  // namespace TLog
