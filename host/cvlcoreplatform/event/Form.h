#pragma once

#include "cvlcoreplatform/TLogForm.h"

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

namespace TLog {

/// Whether a field of this name may be added to the line: all names that it has by itself are
/// taken.
bool IsFurtherField(std::u16string_view name) noexcept;

/// Whether the slot's value is a text in the end.
constexpr bool IsText(FieldKind kind) noexcept {
    return kind == FieldKind::Text || kind == FieldKind::Uuid || kind == FieldKind::FreshRequest;
}

/// What the writer of events keeps with a form.
class FormNotes {
public:
    FormNotes() = default;
    virtual ~FormNotes();
    FormNotes(const FormNotes&) = delete;
    FormNotes& operator=(const FormNotes&) = delete;
};

class Form {
public:
    explicit Form(std::vector<FormField> fields);
    ~Form();
    Form(const Form&) = delete;
    Form& operator=(const Form&) = delete;

    const std::vector<FormField>& GetFields() const noexcept { return m_fields; }

    /// The kinds of the fields that have a slot, in their order.
    const std::vector<FieldKind>& GetSlots() const noexcept { return m_slots; }

    /// The same for all who ask, made of the form when the first one does. There is one kind of
    /// notes in a process. Throws `std::bad_alloc`.
    template <class Notes>
    const Notes& GetNotes() const {
        const FormNotes* const notes = m_notes.load(std::memory_order_acquire);
        return static_cast<const Notes&>(
            notes != nullptr ? *notes : Keep(std::make_unique<const Notes>(*this)));
    }

private:
    const FormNotes& Keep(std::unique_ptr<const FormNotes> notes) const;

    const std::vector<FormField> m_fields;
    std::vector<FieldKind> m_slots;
    // Owned; null until it is needed.
    mutable std::atomic<const FormNotes*> m_notes{nullptr};
};

}  // namespace TLog
