#pragma once

#include "Arena.h"
#include "EventValues.h"
#include "PaddedText.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TLog {

/// A text that lives as long as the event. `GatheredText()` is empty; without parentheses it is
/// nothing.
class GatheredText {
public:
    GatheredText() noexcept = default;

    explicit GatheredText(host::PaddedText plain) noexcept
        : m_text(plain.View().data()),
          m_size(plain.Length() * 2) {}

    explicit GatheredText(std::u16string_view units) noexcept
        : m_text(units.data()),
          m_size(units.size() * 2 + 1) {}

    /// Whether it is known to be plain (`host::CopyPlain`).
    bool IsPlain() const noexcept { return m_size % 2 == 0; }

    host::PaddedText Plain() const noexcept {
        return {static_cast<const char*>(m_text), m_size / 2};
    }

    std::u16string_view Units() const noexcept {
        return {static_cast<const char16_t*>(m_text), m_size / 2};
    }

private:
    const void* m_text;
    // Twice, and one more for units.
    std::size_t m_size;
};

/// Where a field of a gathered event stands, its name, and what kind of value it has. Of two fields
/// with the same name and the same constant, in the same object, even the bytes are mostly the
/// same.
struct GatheredPlace {
    enum class Kind : uint32 {
        Integer,
        Boolean,
        Double,
        Text,
        Constant,  ///< a text that lives as long as the process
        Object,
        Shared,
    };

    std::u16string_view Name() const noexcept {
        return name != nullptr ? std::u16string_view(*name) : std::u16string_view();
    }

    const std::u16string* name;  ///< null for the empty one
    const char16_t* constant;    ///< null for other kinds
    EventBuilder::ObjectId object;
    Kind kind;
};

/// The value of a field, as its kind says.
union GatheredValue {
    int64 integer;  ///< of a boolean, too
    double real;
    GatheredText text;  ///< of a constant, too
    EventBuilder::ObjectId child;
    std::size_t shared;  ///< its place among the shared values
};

/// The names of the fields in the head: whom the event concerns. Those that are missing are empty.
class HeadNames {
    const std::u16string m_session{u"session"};
    const std::u16string m_request{u"request"};
    const std::u16string m_user{u"user"};
    const std::u16string m_site{u"site"};

public:
    const TString session = TString::ReferTo(m_session);
    const TString request = TString::ReferTo(m_request);
    const TString user = TString::ReferTo(m_user);
    const TString site = TString::ReferTo(m_site);
};

/// Lives as long as the process.
const HeadNames& GetHeadNames();

/// Whether a field of this name may be added to the line: all names that it has by itself are
/// taken.
bool IsFurtherField(std::u16string_view name) noexcept;

/// An event as it was gathered: its fields in the order in which they came, and their texts, in
/// one block of memory unless they are many.
class GatheredFields final : public EventFields {
public:
    using ObjectId = EventBuilder::ObjectId;

    GatheredFields() noexcept;

    void AddText(ObjectId object, const TString& name, TextView text);
    void AddUuid(ObjectId object, const TString& name, const TUUID& id);
    void AddInteger(ObjectId object, const TString& name, GatheredPlace::Kind kind, int64 value);
    void AddDouble(ObjectId object, const TString& name, double value);
    void AddValue(ObjectId object, const TString& name, std::shared_ptr<Value> value);
    ObjectId AddObject(ObjectId object, const TString& name);

    void SetName(TString name) noexcept { m_name = std::move(name); }

    /// Of all fields, in the order in which they came.
    std::span<const GatheredPlace> GetPlaces() const noexcept { return {m_places, m_count}; }

    /// Of the same fields.
    std::span<const GatheredValue> GetValues() const noexcept { return {m_values, m_count}; }

    uint32 CountObjects() const noexcept { return m_objects; }

    /// The same for events with fields of the same names in the same objects and with the same
    /// constants, if these names share their characters or are alike; hardly ever the same for
    /// others.
    uint64 ShapeKey() const noexcept { return m_shapeKey; }

    /// Of all fields, in the order in which they came. Throws `std::bad_alloc`.
    std::vector<TString> GetFieldNames() const;

    const std::shared_ptr<Value>& GetShared(const GatheredValue& value) const noexcept {
        return m_shared[value.shared];
    }

    EventValues ToValues() const;

    EventTimePoint time;
    uint32 processId = 0;
    uint64 threadId = 0;

    /// Of the fields that come before all objects.
    static constexpr ObjectId head = ObjectId::Line;

private:
    // An end event with a few attributes.
    static constexpr std::size_t usualFields = 20;
    static constexpr std::size_t textBytes = 768;

    GatheredValue& Add(ObjectId object,
                       const TString& name,
                       GatheredPlace::Kind kind,
                       const char16_t* constant = nullptr);
    GatheredValue* TryToAdd(ObjectId object,
                            const TString& name,
                            GatheredPlace::Kind kind,
                            const char16_t* constant) noexcept;
    GatheredValue& Append(const GatheredPlace& place, uint64 nameKey) noexcept;
    [[gnu::noinline]] void AddCopy(ObjectId object, const TString& name, TextView text);
    GatheredText Copy(TextView text);

    // What is seldom needed stays out of the way of the rest.
    [[gnu::noinline]] GatheredText CopyUnits(std::u16string_view units);
    [[gnu::noinline]] GatheredValue& AddWithCare(ObjectId object,
                                                 const TString& name,
                                                 GatheredPlace::Kind kind,
                                                 const char16_t* constant);
    void MakeRoom();

    // Apart, so that the places of two events are compared at once.
    GatheredPlace* m_places = m_usualPlaces;
    GatheredValue* m_values = m_usualValues;
    std::size_t m_count = 0;
    std::size_t m_room = usualFields;
    uint32 m_objects;
    uint64 m_shapeKey = 0;

    /// The name of a field, owned unless it lives as long as the process.
    struct OwnedName {
        std::size_t field;
        TString name;
    };

    // What the fields refer to, in their order.
    std::vector<OwnedName> m_names;
    std::vector<std::shared_ptr<Value>> m_shared;
    GatheredPlace m_usualPlaces[usualFields];
    GatheredValue m_usualValues[usualFields];
    cvlcoreplatform::Arena<textBytes> m_memory;
};

/// Null for an event that was made of values.
inline const GatheredFields* AsGathered(const EventFields& fields) noexcept {
    return fields.HasGivenValues() ? nullptr : static_cast<const GatheredFields*>(&fields);
}

}  // namespace TLog
