#include "FormedEvent.h"

#include <utility>
#include <vector>

namespace TLog {

// From the form's fields, with all that is a text here as such, and without those that the line has
// no place for.
EventValues FormedEvent::ToValues() const {
    std::vector<FormField> fields;
    std::vector<SlotValue> values;
    const StoredValue* next = m_values;
    for (FormField field : m_form->GetFields()) {
        const StoredValue* const value = HasSlot(field.kind) ? next++ : nullptr;
        if (field.part == EventPart::Line && !IsFurtherField(field.name.View())) {
            continue;
        }
        if (IsText(field.kind)) {
            field.kind = FieldKind::Text;
            values.push_back(value->text.IsPlain() ? TextView(value->text.Plain().View())
                                                   : TextView(value->text.Units()));
        } else if (field.kind == FieldKind::Value) {
            values.push_back(&GetShared(*value));
        } else if (field.kind == FieldKind::Real) {
            values.push_back(value->real);
        } else if (value != nullptr) {
            values.push_back(value->integer);
        }
        fields.push_back(std::move(field));
    }
    const Event event =
        MakeEventOfValues(fields, {GetName(), time, processId, threadId}, values.data());
    return {event.GetBody(), *event.GetActivityInfo()};
}

}  // namespace TLog
