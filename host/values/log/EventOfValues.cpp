#include "cvlcoreplatform/TLogForm.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace TLog {

namespace {

TString ToText(const TextView& text) {
    return text.IsUtf8() ? TString::FromUtf8(text.GetUtf8()) : TString(text.GetUtf16());
}

std::shared_ptr<Value> ToValue(FieldKind kind, const SlotValue& value) {
    switch (kind) {
        case FieldKind::Uuid:
            return Literal::String(value.id->ToString(TUUIDFormatOption::UpperHyphenated));
        case FieldKind::Integer:
            return Literal::Int(value.integer);
        case FieldKind::Boolean:
            return Literal::Bool(value.integer != 0);
        case FieldKind::Real:
            return Literal::Double(value.real, 0);
        case FieldKind::Value:
            return *value.value;
        case FieldKind::FreshRequest:
            return Literal::String(ActivityInfoFactory::CreateActivityInfo(0, u"-").GetRequestId());
        default:
            return Literal::String(ToText(value.text));
    }
}

/// The tables of an event's parts.
class Tables {
public:
    // An object comes before its fields: from behind, each is complete when its turn comes.
    Tables(const std::vector<FormField>& fields, const SlotValue* values) {
        for (const FormField& field : fields) {
            const EventPart last = field.kind == FieldKind::Object ? field.inner : field.part;
            m_tables.resize(std::max(m_tables.size(), static_cast<std::size_t>(last) + 1));
            values += HasSlot(field.kind) ? 1 : 0;
        }
        for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
            std::shared_ptr<Value> value;
            if (field->kind == FieldKind::Object) {
                value = Take(field->inner);
            } else if (field->kind == FieldKind::Constant) {
                value = Literal::String(field->constant);
            } else {
                value = ToValue(field->kind, *--values);
            }
            TableOf(field->part).emplace(field->name, std::move(value));
        }
    }

    std::shared_ptr<Object> Take(EventPart part) { return Object::Make(std::move(TableOf(part))); }

    /// Of a part that is one text.
    TString TextOf(EventPart part) {
        const NameTable& table = TableOf(part);
        return table.empty() ? TString()
                             : static_cast<const Literal&>(*table.begin()->second).GetString();
    }

    bool IsEmpty(EventPart part) { return TableOf(part).empty(); }

private:
    NameTable& TableOf(EventPart part) { return m_tables[static_cast<std::size_t>(part)]; }

    std::vector<NameTable> m_tables =
        std::vector<NameTable>(static_cast<std::size_t>(EventPart::Inner));
};

}  // namespace

Event MakeEventOfValues(const std::vector<FormField>& fields,
                        EventHead head,
                        const SlotValue* values) {
    Tables tables(fields, values);
    ActivityInfo information(head.time,
                             head.processId,
                             head.threadId,
                             tables.TextOf(EventPart::Session),
                             tables.TextOf(EventPart::Request),
                             tables.TextOf(EventPart::User),
                             tables.TextOf(EventPart::Site),
                             tables.Take(EventPart::Environment),
                             tables.Take(EventPart::Activity),
                             tables.Take(EventPart::Attributes));
    if (!tables.IsEmpty(EventPart::Line)) {
        // Who writes the line leaves out names of its own.
        information = information.WithFurtherFields(tables.Take(EventPart::Line));
    }
    return {std::move(head.name), tables.Take(EventPart::Body), std::move(information)};
}

}  // namespace TLog
