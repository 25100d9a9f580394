#include "LineTemplate.h"

#include "LineText.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace cvlcoreplatform {

using TLog::EventPart;
using TLog::FieldKind;
using TLog::FormField;

namespace {

void AppendQuoted(std::string& text, std::u16string_view units) {
    LineText quoted;
    quoted.AppendText(units);
    text += quoted.View();
}

/// Writes the fixed text of a line, and notes where in it the values go.
class Writer {
public:
    explicit Writer(const TLog::Form& form) {
        std::size_t slot = 0;
        for (const FormField& field : form.GetFields()) {
            m_fields.push_back({&field, slot});
            slot += TLog::HasSlot(field.kind) ? 1U : 0U;
        }
        std::stable_sort(m_fields.begin(), m_fields.end(), [](const Field& a, const Field& b) {
            return a.field->part != b.field->part ? a.field->part < b.field->part
                                                  : a.field->name < b.field->name;
        });
    }

    void WriteLine() {
        WriteOne(R"(,"session":)", EventPart::Session);
        WriteOne(R"(,"request":)", EventPart::Request);
        WriteOne(R"(,"user":)", EventPart::User);
        WriteOne(R"(,"site":)", EventPart::Site);
        WriteFurtherFields();
        text += R"(,"environment":)";
        WriteObject(EventPart::Environment);
        text += R"(,"activity":)";
        WriteObject(EventPart::Activity);
        text += R"(,"attributes":)";
        WriteObject(EventPart::Attributes);
        text += R"(,"body":)";
        WriteObject(EventPart::Body);
    }

    std::string text;
    std::vector<LineTemplate::Gap> gaps;  ///< without the texts before them
    std::vector<std::size_t> places;      ///< of the gaps, in the text

private:
    struct Field {
        const FormField* field;
        std::size_t slot;  ///< if it has one
    };

    using Fields =
        std::pair<std::vector<Field>::const_iterator, std::vector<Field>::const_iterator>;

    /// By name.
    Fields FieldsOf(EventPart part) const {
        const auto first =
            std::partition_point(m_fields.begin(), m_fields.end(), [part](const Field& f) {
                return f.field->part < part;
            });
        return {first, std::partition_point(first, m_fields.end(), [part](const Field& f) {
                    return f.field->part == part;
                })};
    }

    void WriteOne(std::string_view name, EventPart part) {
        text += name;
        const auto [field, end] = FieldsOf(part);
        if (field != end) {
            WriteValue(*field);
        } else {
            text += R"("")";
        }
    }

    void WriteFurtherFields() {
        const auto [first, end] = FieldsOf(EventPart::Line);
        for (auto field = first; field != end; ++field) {
            if (TLog::IsFurtherField(field->field->name.View())) {
                text += ',';
                WriteField(*field);
            }
        }
    }

    void WriteObject(EventPart part) {
        text += '{';
        const auto [first, end] = FieldsOf(part);
        for (auto field = first; field != end; ++field) {
            if (field != first) {
                text += ',';
            }
            WriteField(*field);
        }
        text += '}';
    }

    void WriteField(const Field& field) {
        AppendQuoted(text, field.field->name.View());
        text += ':';
        WriteValue(field);
    }

    void WriteValue(const Field& field) {
        switch (field.field->kind) {
            case FieldKind::Object:
                return WriteObject(field.field->inner);
            case FieldKind::Constant:
                return AppendQuoted(text, field.field->constant.View());
            default:
                gaps.push_back(
                    {{}, field.slot, field.field->kind, TLog::IsText(field.field->kind)});
                places.push_back(text.size());
        }
    }

    std::vector<Field> m_fields;
};

}  // namespace

LineTemplate::LineTemplate(const TLog::Form& form) {
    Writer writer(form);
    writer.WriteLine();
    const std::size_t end = writer.text.size();
    m_text = std::move(writer.text);
    m_text.append(host::PaddedText::slack, '\0');
    m_gaps = std::move(writer.gaps);
    std::size_t begin = 0;
    for (std::size_t i = 0; i < m_gaps.size(); ++i) {
        m_gaps[i].before = host::PaddedText::Within(m_text, begin, writer.places[i]);
        begin = writer.places[i];
    }
    m_afterAll = host::PaddedText::Within(m_text, begin, end);
}

}  // namespace cvlcoreplatform
