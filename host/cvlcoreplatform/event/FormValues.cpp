#include "FormedEvent.h"

#include <cstddef>
#include <utility>

namespace TLog {

namespace {

TString ToText(const StoredText& text) {
    return text.IsPlain() ? TString::FromUtf8(text.Plain().View()) : TString(text.Units());
}

/// Makes the values of an event that has a form, and puts each into the table of its part.
class ValueMaker {
public:
    explicit ValueMaker(const FormedEvent& event)
        : m_event(event),
          m_tables(event.GetForm().CountParts()) {
        // An object's fields come after the object itself: from behind, it is complete when its
        // turn comes.
        const Form& form = event.GetForm();
        const StoredValue* next = event.GetValues() + form.GetSlots().size();
        const auto& fields = form.GetFields();
        for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
            next -= HasSlot(field->kind) ? 1 : 0;
            TableOf(field->part).emplace(field->name, ToValue(*field, next));
        }
    }

    std::shared_ptr<Object> Take(EventPart part) { return Object::Make(std::move(TableOf(part))); }

    /// Of a part that is one text.
    TString TextOf(EventPart part) {
        const NameTable& table = TableOf(part);
        return table.empty() ? TString()
                             : static_cast<const Literal&>(*table.begin()->second).GetString();
    }

    /// The fields that the line has no place of its own for; null where there are none.
    std::shared_ptr<Object> TakeFurtherFields() {
        NameTable& table = TableOf(EventPart::Line);
        std::erase_if(table, [](const auto& field) { return !IsFurtherField(field.first.View()); });
        return table.empty() ? nullptr : Take(EventPart::Line);
    }

private:
    NameTable& TableOf(EventPart part) { return m_tables[static_cast<std::size_t>(part)]; }

    std::shared_ptr<Value> ToValue(const FormField& field, const StoredValue* value) {
        switch (field.kind) {
            case FieldKind::Constant:
                return Literal::String(field.constant);
            case FieldKind::Object:
                return Take(field.inner);
            case FieldKind::Integer:
                return Literal::Int(value->integer);
            case FieldKind::Boolean:
                return Literal::Bool(value->integer != 0);
            case FieldKind::Real:
                return Literal::Double(value->real, 0);
            case FieldKind::Value:
                return m_event.GetShared(*value);
            case FieldKind::Text:
            case FieldKind::Uuid:
            case FieldKind::FreshRequest:
                break;
        }
        return Literal::String(ToText(value->text));
    }

    const FormedEvent& m_event;
    std::vector<NameTable> m_tables;
};

}  // namespace

EventValues FormedEvent::ToValues() const {
    ValueMaker values(*this);
    // Named, as it is not said which argument is made first.
    auto environment = values.Take(EventPart::Environment);
    auto activity = values.Take(EventPart::Activity);
    auto attributes = values.Take(EventPart::Attributes);
    ActivityInfo information(time,
                             processId,
                             threadId,
                             values.TextOf(EventPart::Session),
                             values.TextOf(EventPart::Request),
                             values.TextOf(EventPart::User),
                             values.TextOf(EventPart::Site),
                             std::move(environment),
                             std::move(activity),
                             std::move(attributes));
    if (std::shared_ptr<Object> further = values.TakeFurtherFields()) {
        information = information.WithFurtherFields(std::move(further));
    }
    return {values.Take(EventPart::Body), std::move(information)};
}

}  // namespace TLog
