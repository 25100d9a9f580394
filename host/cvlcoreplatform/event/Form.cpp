#include "Form.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace TLog {

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

FormNotes::~FormNotes() = default;

Form::Form(std::vector<FormField> fields) : m_fields(std::move(fields)) {
    for (const FormField& field : m_fields) {
        if (HasSlot(field.kind)) {
            m_slots.push_back(field.kind);
        }
    }
}

Form::~Form() {
    delete m_notes.load(std::memory_order_relaxed);
}

// Threads that ask at the same time may all make notes; the first ones that are done stay.
const FormNotes& Form::Keep(std::unique_ptr<const FormNotes> notes) const {
    const FormNotes* expected = nullptr;
    if (m_notes.compare_exchange_strong(
            expected, notes.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
        return *notes.release();
    }
    return *expected;
}

std::shared_ptr<const Form> MakeForm(std::vector<FormField> fields) {
    return std::make_shared<const Form>(std::move(fields));
}

}  // namespace TLog
