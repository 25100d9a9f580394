#pragma once

#include "Arena.h"
#include "EventValues.h"
#include "Form.h"
#include "PaddedText.h"

#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace TLog {

/// A text that lives as long as the event.
class StoredText {
public:
    StoredText() noexcept = default;

    explicit StoredText(host::PaddedText plain) noexcept
        : m_text(plain.View().data()),
          m_size(plain.Length() * 2) {}

    explicit StoredText(std::u16string_view units) noexcept
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

/// The value of a slot, as the field's kind says.
union StoredValue {
    int64 integer;  ///< of a boolean, too
    double real;
    StoredText text;     ///< of an id, too
    std::size_t shared;  ///< its place among the shared values
};

/// An event that has a form: the values of its slots and their texts, in one block of memory unless
/// they are many.
class FormedEvent final : public EventFields {
public:
    FormedEvent(const std::shared_ptr<const Form>& form, EventHead head, const SlotValue* values);

    const Form& GetForm() const noexcept { return *m_form; }

    const std::shared_ptr<const Form>& ShareForm() const noexcept { return m_form; }

    /// Of all slots.
    const StoredValue* GetValues() const noexcept { return m_values; }

    /// Of all plain texts together, or more.
    std::size_t CountTextBytes() const noexcept { return m_textBytes; }

    const std::shared_ptr<Value>& GetShared(const StoredValue& value) const noexcept {
        return m_shared[value.shared];
    }

    /// Of memory, about: with the block that the event lies in and what only it refers to.
    std::size_t CountBytes() const;

    EventValues ToValues() const;

    const EventTimePoint time;
    const uint32 processId;
    const uint64 threadId;

private:
    // What an end event with a few attributes takes.
    static constexpr std::size_t usualBytes = 1280;

    StoredValue Store(FieldKind kind, const SlotValue& value);
    char* TakeForText(std::size_t length);
    StoredText Copy(TextView text);
    StoredText Copy(const TUUID& id);
    // Seldom needed, and out of the way of the rest.
    [[gnu::noinline]] StoredText CopyUnits(std::u16string_view units);

    const std::shared_ptr<const Form> m_form;
    StoredValue* m_values = nullptr;
    std::size_t m_textBytes = 0;
    std::vector<std::shared_ptr<Value>> m_shared;
    cvlcoreplatform::Arena<usualBytes> m_memory;
};

/// Null for an event that was made of values.
inline const FormedEvent* AsFormed(const EventFields& fields) noexcept {
    return fields.HasGivenValues() ? nullptr : static_cast<const FormedEvent*>(&fields);
}

}  // namespace TLog
