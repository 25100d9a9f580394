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
#include <vector>

// Events that look alike: which fields they have is said once, as a form, and each event brings the
// values of its slots. Optional for a host: the default makes the values of each event at once.
namespace TLog {

/// A text that is lent for the time of a call, in either encoding. What is ill-formed in UTF-8
/// counts as U+FFFD.
class TextView {
public:
    // NOLINTBEGIN(google-explicit-constructor): a text is given where a view is asked for

    TextView(const TString& text) noexcept : TextView(text.View()) {}

    TextView(std::u16string_view text) noexcept : m_text(text.data()), m_size(text.size() * 2) {}

    TextView(std::string_view utf8) noexcept : m_text(utf8.data()), m_size(utf8.size() * 2 + 1) {}

    // NOLINTEND(google-explicit-constructor)

    bool IsUtf8() const noexcept { return m_size % 2 != 0; }

    std::string_view GetUtf8() const noexcept {
        return {static_cast<const char*>(m_text), m_size / 2};
    }

    std::u16string_view GetUtf16() const noexcept {
        return {static_cast<const char16_t*>(m_text), m_size / 2};
    }

private:
    const void* m_text;
    // Twice, and one more for UTF-8: the whole fits into two registers.
    std::size_t m_size;
};

/// What a field belongs to.
enum class EventPart : uint32 {
    Environment,
    Activity,
    Attributes,
    Body,
    /// The event itself: fields beside the user and the site, which must be texts. Those under a
    /// name that a line has by itself are left out.
    Line,
    // Whom the event concerns. Each is one text, whose name does not matter; empty without a field.
    Session,
    Request,
    User,
    Site,
    /// This one and all that follow are objects of the form's own, numbered without gaps.
    Inner,
};

enum class FieldKind : uint32 {
    // These have a slot.
    Text,
    Uuid,  ///< a text, as `TUUIDFormatOption::UpperHyphenated` says
    Integer,
    Boolean,
    Real,          ///< in general notation
    Value,         ///< one that is there already, and not null
    FreshRequest,  ///< a request id as `ActivityInfoFactory` makes one; its slot's value is not
                   ///< read
    // These have none.
    Constant,  ///< a text
    Object,    ///< one of the form's own
};

constexpr bool HasSlot(FieldKind kind) noexcept {
    return kind < FieldKind::Constant;
}

struct FormField {
    EventPart part;
    TString name;
    FieldKind kind;
    TString constant = TString();        ///< of a `Constant`
    EventPart inner = EventPart::Inner;  ///< of an `Object`: the part that it is
};

/// The value of a slot, lent for the time of a call; which one it is, the field's kind says.
union SlotValue {
    // NOLINTBEGIN(google-explicit-constructor): a value is given where a slot is filled

    SlotValue(TextView lent) noexcept : text(lent) {}

    SlotValue(const TUUID* lent) noexcept : id(lent) {}

    SlotValue(int64 number) noexcept : integer(number) {}

    SlotValue(double number) noexcept : real(number) {}

    SlotValue(const std::shared_ptr<Value>* lent) noexcept : value(lent) {}

    // NOLINTEND(google-explicit-constructor)

    TextView text;
    const TUUID* id;
    int64 integer;  ///< of a boolean, too: whether it is not 0
    double real;
    const std::shared_ptr<Value>* value;
};

/// What the host keeps of a form.
class Form;

/// A form may be kept and shared by any number of events and threads. Within a part no two fields
/// may have the same name, and an `Object` comes before the fields of its part. Throws
/// `std::bad_alloc`.
CVLCOREPLATFORM_API std::shared_ptr<const Form> MakeForm(std::vector<FormField> fields);

/// What an event has besides its fields.
struct EventHead {
    TString name;
    EventTimePoint time;
    uint32 processId = 0;
    uint64 threadId = 0;
};

/// An event of that form. `values` has one for each slot, in the order of their fields. Throws
/// `std::bad_alloc`.
CVLCOREPLATFORM_API Event MakeEvent(const std::shared_ptr<const Form>& form,
                                    EventHead head,
                                    const SlotValue* values);

/// The same event, with `Literal`s, `Array`s and `Object`s that are made at once. Not for the
/// library to call: from it hosts make an event's values. Throws `std::bad_alloc`.
CVLCOREPLATFORM_API Event MakeEventOfValues(const std::vector<FormField>& fields,
                                            EventHead head,
                                            const SlotValue* values);

}  // namespace TLog
