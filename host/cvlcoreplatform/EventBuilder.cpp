#include "EventFields.h"
#include "PlainText.h"
#include "UuidText.h"

#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/host/RecycledBlocks.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace TLog {

namespace {

using Kind = GatheredField::Kind;
using ObjectId = EventBuilder::ObjectId;

// The objects that every event has.
constexpr uint32 firstObjects = 4;

constexpr uint32 mostObjects = 256;

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): fields are written when they are added
GatheredFields::GatheredFields() noexcept : m_objects(firstObjects) {}

void GatheredFields::MakeRoom() {
    auto* const larger = m_memory.Take<GatheredField>(2 * m_room);
    std::copy_n(m_fields, m_count, larger);
    m_fields = larger;
    m_room *= 2;
}

inline GatheredField& GatheredFields::Add(ObjectId object, const TString& name, Kind kind) {
    if (m_count == m_room) {
        MakeRoom();
    }
    const TString::Characters& characters = name.SharedCharacters();
    GatheredField& field = m_fields[m_count];
    field.name = characters.get();
    field.object = object;
    field.kind = kind;
    constexpr uint64 multiplier = 31;
    if (characters.use_count() == 0) {
        // A pointer that owns nothing points to a name that lives as long as the process.
        m_shapeKey = m_shapeKey * multiplier + reinterpret_cast<std::uintptr_t>(field.name);
    } else {
        m_names.push_back(name);
        m_shapeKey = m_shapeKey * multiplier + name.Length() * multiplier + *name.Data();
    }
    m_shapeKey += static_cast<uint64>(object);
    ++m_count;
    return field;
}

inline GatheredText GatheredFields::Copy(TextView text) {
    if (text.IsUtf8()) {
        const std::string_view utf8 = text.GetUtf8();
        char* const plain = m_memory.Take<char>(utf8.size());
        if (cvlcoreplatform::CopyPlain(utf8, plain)) {
            return GatheredText(std::string_view(plain, utf8.size()));
        }
        return Copy(TString::FromUtf8(utf8));
    }
    const std::u16string_view units = text.GetUtf16();
    char* const plain = m_memory.Take<char>(units.size());
    if (cvlcoreplatform::CopyPlain(units, plain)) {
        return GatheredText(std::string_view(plain, units.size()));
    }
    auto* const copy = m_memory.Take<char16_t>(units.size());
    std::copy(units.begin(), units.end(), copy);
    return GatheredText(std::u16string_view(copy, units.size()));
}

inline void GatheredFields::AddText(ObjectId object, const TString& name, TextView text) {
    if (text.IsImmortal()) {
        const GatheredText constant(text.GetUtf16());
        Add(object, name, Kind::Constant).text = constant;
        m_shapeKey += reinterpret_cast<std::uintptr_t>(text.GetUtf16().data());
        return;
    }
    const GatheredText copy = Copy(text);
    Add(object, name, Kind::Text).text = copy;
}

inline void GatheredFields::AddUuid(ObjectId object, const TString& name, const TUUID& id) {
    char* const plain = m_memory.Take<char>(cvlcoreplatform::uuidTextLength);
    cvlcoreplatform::WriteUuid(id, plain);
    Add(object, name, Kind::Text).text =
        GatheredText(std::string_view(plain, cvlcoreplatform::uuidTextLength));
}

inline void GatheredFields::AddInteger(ObjectId object,
                                       const TString& name,
                                       Kind kind,
                                       int64 value) {
    Add(object, name, kind).integer = value;
}

inline void GatheredFields::AddDouble(ObjectId object, const TString& name, double value) {
    Add(object, name, Kind::Double).real = value;
}

inline void GatheredFields::AddValue(ObjectId object,
                                     const TString& name,
                                     std::shared_ptr<Value> value) {
    m_values.push_back(std::move(value));
    Add(object, name, Kind::Shared).shared = m_values.size() - 1;
}

inline ObjectId GatheredFields::AddObject(ObjectId object, const TString& name) {
    if (m_objects == mostObjects) {
        throw std::length_error("an event has too many objects");
    }
    const auto child = static_cast<ObjectId>(m_objects);
    Add(object, name, Kind::Object).child = child;
    ++m_objects;
    return child;
}

const HeadNames& GetHeadNames() {
    static const HeadNames& names = *new const HeadNames;
    return names;
}

EventBuilder::EventBuilder() : m_fields(cvlsys::MakeRecycled<GatheredFields>()) {}

EventBuilder::~EventBuilder() = default;

void EventBuilder::AddText(ObjectId object, const TString& name, TextView text) {
    m_fields->AddText(object, name, text);
}

void EventBuilder::AddUuid(ObjectId object, const TString& name, const TUUID& id) {
    m_fields->AddUuid(object, name, id);
}

void EventBuilder::AddInt(ObjectId object, const TString& name, int64 value) {
    m_fields->AddInteger(object, name, Kind::Integer, value);
}

void EventBuilder::AddBool(ObjectId object, const TString& name, bool value) {
    m_fields->AddInteger(object, name, Kind::Boolean, value ? 1 : 0);
}

void EventBuilder::AddDouble(ObjectId object, const TString& name, double value) {
    m_fields->AddDouble(object, name, value);
}

void EventBuilder::AddValue(ObjectId object, const TString& name, std::shared_ptr<Value> value) {
    m_fields->AddValue(object, name, std::move(value));
}

EventBuilder::ObjectId EventBuilder::AddObject(ObjectId object, const TString& name) {
    return m_fields->AddObject(object, name);
}

void EventBuilder::SetSession(TextView text) {
    m_fields->AddText(GatheredFields::head, GetHeadNames().session, text);
}

void EventBuilder::SetRequest(TextView text) {
    m_fields->AddText(GatheredFields::head, GetHeadNames().request, text);
}

void EventBuilder::SetFreshRequest() {
    m_fields->AddUuid(GatheredFields::head, GetHeadNames().request, TUUID::CreateUUID());
}

void EventBuilder::SetUser(TextView text) {
    m_fields->AddText(GatheredFields::head, GetHeadNames().user, text);
}

void EventBuilder::SetSite(TextView text) {
    m_fields->AddText(GatheredFields::head, GetHeadNames().site, text);
}

Event EventBuilder::Finish(TString name, EventTimePoint time, uint32 processId, uint64 threadId) {
    m_fields->SetName(std::move(name));
    m_fields->time = time;
    m_fields->processId = processId;
    m_fields->threadId = threadId;
    return Event(std::move(m_fields));
}

}  // namespace TLog
