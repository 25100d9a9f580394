#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <string_view>

namespace TLog {

/// A text that is lent for the time of a call, in either encoding. What is ill-formed in UTF-8
/// counts as U+FFFD. Of a string whose characters live as long as the process, the host may keep
/// what it makes of them, because they are expected to come again.
class TextView {
public:
    // Texts stand for themselves, hence the implicit constructors.
    // NOLINTBEGIN(google-explicit-constructor): see above

    TextView(const TString& text) noexcept
        : m_text(text.Data()),
          m_size(text.Length() * factor +
                 (text.SharedCharacters().use_count() == 0 ? immortal : 0)) {}

    TextView(std::u16string_view text) noexcept
        : m_text(text.data()),
          m_size(text.size() * factor) {}

    TextView(std::string_view utf8) noexcept
        : m_text(utf8.data()),
          m_size(utf8.size() * factor + isUtf8) {}

    // NOLINTEND(google-explicit-constructor)

    bool IsUtf8() const noexcept { return (m_size & isUtf8) != 0; }

    /// Whether the text is UTF-16 that lives as long as the process.
    bool IsImmortal() const noexcept { return (m_size & immortal) != 0; }

    std::string_view GetUtf8() const noexcept {
        return {static_cast<const char*>(m_text), m_size / factor};
    }

    std::u16string_view GetUtf16() const noexcept {
        return {static_cast<const char16_t*>(m_text), m_size / factor};
    }

private:
    static constexpr std::size_t isUtf8 = 1;
    static constexpr std::size_t immortal = 2;
    static constexpr std::size_t factor = 4;

    const void* m_text;
    // Four times, and what kind of text it is: the whole fits into two registers.
    std::size_t m_size;
};

/// Gathers an activity event field by field, in one piece of memory: texts are copied, and no value
/// is made before somebody asks the event for it. Within one object no two fields may have the same
/// name. One thread at a time. What adds something throws `std::bad_alloc`. Optional for a host:
/// the default makes the values at once.
class CVLCOREPLATFORM_API EventBuilder {
public:
    /// One of the event's objects. The first four are always there; the builder knows the others
    /// that it has made. `Line` is the event itself: texts that are added to it are further fields
    /// beside the user and the site, and those under a name that the line has by itself are left
    /// out.
    enum class ObjectId : uint32 {
        Environment = 0,
        Activity = 1,
        Attributes = 2,
        Body = 3,
        Line = ~uint32{0}
    };

    EventBuilder();
    ~EventBuilder();
    EventBuilder(const EventBuilder&) = delete;
    EventBuilder& operator=(const EventBuilder&) = delete;

    void AddText(ObjectId object, const TString& name, TextView text);
    /// As `TUUIDFormatOption::UpperHyphenated` says.
    void AddUuid(ObjectId object, const TString& name, const TUUID& id);

    void AddInt(ObjectId object, const TString& name, int64 value);
    void AddBool(ObjectId object, const TString& name, bool value);

    /// In general notation.
    void AddDouble(ObjectId object, const TString& name, double value);

    /// A value that is there already, and not null.
    void AddValue(ObjectId object, const TString& name, std::shared_ptr<Value> value);

    /// A new object inside of `object`. Throws `std::length_error` when there are more than a few
    /// hundred.
    ObjectId AddObject(ObjectId object, const TString& name);

    // Whom the event concerns; empty unless they are set, which may happen once for each.
    void SetSession(TextView text);
    void SetRequest(TextView text);

    /// A request id as `ActivityInfoFactory` makes one.
    void SetFreshRequest();

    void SetUser(TextView text);
    void SetSite(TextView text);

    /// To be called once, at the end.
    Event Finish(TString name, EventTimePoint time, uint32 processId, uint64 threadId);

private:
    std::shared_ptr<GatheredFields> m_fields;
};

}  // namespace TLog
