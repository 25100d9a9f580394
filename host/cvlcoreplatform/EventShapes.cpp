#include "EventShapes.h"

#include "LineText.h"

#include <algorithm>

namespace cvlcoreplatform {

using TLog::EventBuilder;
using TLog::GatheredField;
using TLog::GatheredFields;

namespace {

bool IsSame(const TString& name, const GatheredField& field) noexcept {
    return name.View() == field.Name();
}

/// The fields of one object by name.
std::vector<std::size_t> SortedFields(const GatheredFields& event, EventBuilder::ObjectId object) {
    const auto fields = event.GetFields();
    std::vector<std::size_t> sorted;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].object == object) {
            sorted.push_back(i);
        }
    }
    std::stable_sort(sorted.begin(), sorted.end(), [&fields](std::size_t a, std::size_t b) {
        return fields[a].Name() < fields[b].Name();
    });
    return sorted;
}

std::string Quoted(std::u16string_view text) {
    LineText line;
    line.AppendText(text);
    return std::string(line.View());
}

}  // namespace

EventShape::EventShape(const GatheredFields& event) {
    m_fields.reserve(event.GetFields().size());
    for (const GatheredField& field : event.GetFields()) {
        const bool isConstant = field.kind == GatheredField::Kind::Constant;
        m_fields.push_back({event.GetFieldName(field),
                            field.object,
                            field.kind,
                            isConstant ? field.text.Units().data() : nullptr});
    }
    WriteHead(event, TLog::GetHeadNames().session);
    WriteHead(event, TLog::GetHeadNames().request);
    WriteHead(event, TLog::GetHeadNames().user);
    WriteHead(event, TLog::GetHeadNames().site);
    m_text += R"(,"environment":)";
    WriteObject(event, EventBuilder::ObjectId::Environment);
    m_text += R"(,"activity":)";
    WriteObject(event, EventBuilder::ObjectId::Activity);
    m_text += R"(,"attributes":)";
    WriteObject(event, EventBuilder::ObjectId::Attributes);
    m_text += R"(,"body":)";
    WriteObject(event, EventBuilder::ObjectId::Body);
    m_end = m_text.size();
    m_text.append(LineText::Cursor::slack, '\0');
}

void EventShape::WriteHead(const GatheredFields& event, const TString& name) {
    m_text += ',';
    m_text += Quoted(name.View());
    m_text += ':';
    const auto fields = event.GetFields();
    const auto field = std::find_if(fields.begin(), fields.end(), [&name](const auto& candidate) {
        return candidate.object == GatheredFields::head && IsSame(name, candidate);
    });
    if (field != fields.end()) {
        WriteField(event, static_cast<std::size_t>(field - fields.begin()));
    } else {
        m_text += R"("")";
    }
}

void EventShape::WriteField(const GatheredFields& event, std::size_t index) {
    const GatheredField& field = event.GetFields()[index];
    switch (field.kind) {
        case GatheredField::Kind::Object:
            return WriteObject(event, field.child);
        case GatheredField::Kind::Constant:
            m_text += Quoted(field.text.Units());
            return;
        default:
            m_steps.push_back({m_last, m_text.size(), index});
            m_last = m_text.size();
    }
}

void EventShape::WriteObject(const GatheredFields& event, EventBuilder::ObjectId object) {
    m_text += '{';
    bool isFirst = true;
    for (const std::size_t index : SortedFields(event, object)) {
        if (!isFirst) {
            m_text += ',';
        }
        isFirst = false;
        m_text += Quoted(event.GetFields()[index].Name());
        m_text += ':';
        WriteField(event, index);
    }
    m_text += '}';
}

bool EventShape::Fits(const GatheredFields& event) const noexcept {
    const auto fields = event.GetFields();
    if (fields.size() != m_fields.size()) {
        return false;
    }
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const GatheredField& field = fields[i];
        const Field& known = m_fields[i];
        if (field.object != known.object || field.kind != known.kind ||
            (field.name != known.name.SharedCharacters().get() && !IsSame(known.name, field)) ||
            (field.kind == GatheredField::Kind::Constant &&
             field.text.Units().data() != known.constant)) {
            return false;
        }
    }
    return true;
}

std::size_t EventShapes::SlotOf(uint64 key) noexcept {
    // The upper bits of the product depend on all of the key.
    constexpr uint64 goldenRatio = 0x9E3779B97F4A7C15;
    return static_cast<std::size_t>(key * goldenRatio >> (64 - slotBits));
}

const EventShape& EventShapes::Get(const GatheredFields& event) {
    if (event.GetFields().size() > mostFields) {
        m_large = std::make_unique<const EventShape>(event);
        return *m_large;
    }
    Slot& slot = m_slots[SlotOf(event.ShapeKey())];
    for (const auto& shape : slot) {
        if (shape != nullptr && shape->Fits(event)) {
            return *shape;
        }
    }
    // The one that has been there longer goes.
    slot[1] = std::move(slot[0]);
    slot[0] = std::make_unique<const EventShape>(event);
    return *slot[0];
}

}  // namespace cvlcoreplatform
