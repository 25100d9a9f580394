#include "EventFields.h"
#include "PlainText.h"
#include "StaticCharacters.h"
#include "UuidText.h"

#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/host/RecycledBlocks.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace TLog {

namespace {

using Kind = GatheredPlace::Kind;
using ObjectId = EventBuilder::ObjectId;

// The objects that every event has.
constexpr uint32 firstObjects = 4;

constexpr uint32 mostObjects = 256;

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): fields are written when they are added
GatheredFields::GatheredFields() noexcept
    : EventFields([](const EventFields& fields) {
          return static_cast<const GatheredFields&>(fields).ToValues();
      }),
      m_objects(firstObjects) {}

void GatheredFields::MakeRoom() {
    auto* const places = m_memory.Take<GatheredPlace>(2 * m_room);
    auto* const values = m_memory.Take<GatheredValue>(2 * m_room);
    std::copy_n(m_places, m_count, places);
    std::copy_n(m_values, m_count, values);
    m_places = places;
    m_values = values;
    m_room *= 2;
}

inline GatheredValue& GatheredFields::Append(const GatheredPlace& place, uint64 nameKey) noexcept {
    constexpr uint64 multiplier = 31;
    m_shapeKey = m_shapeKey * multiplier + nameKey + static_cast<uint64>(place.object) +
                 reinterpret_cast<std::uintptr_t>(place.constant);
    m_places[m_count] = place;
    return m_values[m_count++];
}

// Calls nothing: what is to be done for nearly every field costs little more than to write it.
inline GatheredValue* GatheredFields::TryToAdd(ObjectId object,
                                               const TString& name,
                                               Kind kind,
                                               const char16_t* constant) noexcept {
    const TString::Characters& characters = name.SharedCharacters();
    if (m_count == m_room || !host::IsStaticOrNull(characters)) {
        return nullptr;
    }
    return &Append({characters.get(), constant, object, kind},
                   reinterpret_cast<std::uintptr_t>(characters.get()));
}

GatheredValue& GatheredFields::AddWithCare(ObjectId object,
                                           const TString& name,
                                           Kind kind,
                                           const char16_t* constant) {
    if (m_count == m_room) {
        MakeRoom();
    }
    if (GatheredValue* const value = TryToAdd(object, name, kind, constant)) {
        return *value;
    }
    // Names with the same text in different places are to give the same key.
    constexpr uint64 multiplier = 31;
    m_names.push_back({m_count, name});
    return Append({name.SharedCharacters().get(), constant, object, kind},
                  name.Length() * multiplier + *name.Data());
}

inline GatheredValue& GatheredFields::Add(ObjectId object,
                                          const TString& name,
                                          Kind kind,
                                          const char16_t* constant) {
    GatheredValue* const value = TryToAdd(object, name, kind, constant);
    return value != nullptr ? *value : AddWithCare(object, name, kind, constant);
}

inline GatheredText GatheredFields::Copy(TextView text) {
    if (text.IsUtf8()) {
        const std::string_view utf8 = text.GetUtf8();
        char* const plain = m_memory.Take<char>(utf8.size());
        if (host::CopyPlain(utf8, plain)) {
            return GatheredText(host::PaddedText(plain, utf8.size()));
        }
        return CopyUnits(TString::FromUtf8(utf8).View());
    }
    const std::u16string_view units = text.GetUtf16();
    char* const plain = m_memory.Take<char>(units.size());
    if (host::CopyPlain(units, plain)) {
        return GatheredText(host::PaddedText(plain, units.size()));
    }
    return CopyUnits(units);
}

GatheredText GatheredFields::CopyUnits(std::u16string_view units) {
    auto* const copy = m_memory.Take<char16_t>(units.size());
    std::copy(units.begin(), units.end(), copy);
    return GatheredText(std::u16string_view(copy, units.size()));
}

inline void GatheredFields::AddText(ObjectId object, const TString& name, TextView text) {
    if (text.IsImmortal()) {
        const std::u16string_view constant = text.GetUtf16();
        Add(object, name, Kind::Constant, constant.data()).text = GatheredText(constant);
    } else {
        AddCopy(object, name, text);
    }
}

void GatheredFields::AddCopy(ObjectId object, const TString& name, TextView text) {
    const GatheredText copy = Copy(text);
    Add(object, name, Kind::Text).text = copy;
}

inline void GatheredFields::AddUuid(ObjectId object, const TString& name, const TUUID& id) {
    char* const plain = m_memory.Take<char>(cvlcoreplatform::uuidTextLength);
    cvlcoreplatform::WriteUuid(id, plain);
    Add(object, name, Kind::Text).text =
        GatheredText(host::PaddedText(plain, cvlcoreplatform::uuidTextLength));
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
    m_shared.push_back(std::move(value));
    Add(object, name, Kind::Shared).shared = m_shared.size() - 1;
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

bool IsFurtherField(std::u16string_view name) noexcept {
    static constexpr std::u16string_view taken[] = {u"time",
                                                    u"severity",
                                                    u"event",
                                                    u"message",
                                                    u"pid",
                                                    u"tid",
                                                    u"session",
                                                    u"request",
                                                    u"user",
                                                    u"site",
                                                    u"environment",
                                                    u"activity",
                                                    u"attributes",
                                                    u"body"};
    return std::find(std::begin(taken), std::end(taken), name) == std::end(taken);
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
