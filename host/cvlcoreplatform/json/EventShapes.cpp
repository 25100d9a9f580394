#include "EventShapes.h"

#include "LineText.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace cvlcoreplatform {

using TLog::EventBuilder;
using TLog::GatheredFields;
using TLog::GatheredPlace;

namespace {

/// The fields of one object by name.
std::vector<std::size_t> SortedFields(const GatheredFields& event, EventBuilder::ObjectId object) {
    const auto places = event.GetPlaces();
    std::vector<std::size_t> sorted;
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (places[i].object == object) {
            sorted.push_back(i);
        }
    }
    std::stable_sort(sorted.begin(), sorted.end(), [&places](std::size_t a, std::size_t b) {
        return places[a].Name() < places[b].Name();
    });
    return sorted;
}

std::string Quoted(std::u16string_view text) {
    LineText line;
    line.AppendText(text);
    return std::string(line.View());
}

}  // namespace

EventShape::EventShape(const GatheredFields& event)
    : m_places(event.GetPlaces().begin(), event.GetPlaces().end()),
      m_names(event.GetFieldNames()) {
    WriteHead(event, TLog::GetHeadNames().session);
    WriteHead(event, TLog::GetHeadNames().request);
    WriteHead(event, TLog::GetHeadNames().user);
    WriteHead(event, TLog::GetHeadNames().site);
    WriteFurtherFields(event);
    m_text += R"(,"environment":)";
    WriteObject(event, EventBuilder::ObjectId::Environment);
    m_text += R"(,"activity":)";
    WriteObject(event, EventBuilder::ObjectId::Activity);
    m_text += R"(,"attributes":)";
    WriteObject(event, EventBuilder::ObjectId::Attributes);
    m_text += R"(,"body":)";
    WriteObject(event, EventBuilder::ObjectId::Body);
    const std::size_t end = m_text.size();
    m_text.append(host::PaddedText::slack, '\0');
    std::size_t begin = 0;
    for (std::size_t i = 0; i < m_steps.size(); ++i) {
        m_steps[i].before = host::PaddedText::Within(m_text, begin, m_ends[i]);
        begin = m_ends[i];
    }
    m_afterAll = host::PaddedText::Within(m_text, begin, end);
}

void EventShape::WriteHead(const GatheredFields& event, const TString& name) {
    m_text += ',';
    m_text += Quoted(name.View());
    m_text += ':';
    const auto places = event.GetPlaces();
    const auto field = std::find_if(places.begin(), places.end(), [&name](const auto& candidate) {
        return candidate.object == GatheredFields::head && candidate.Name() == name.View();
    });
    if (field != places.end()) {
        WriteField(event, static_cast<std::size_t>(field - places.begin()));
    } else {
        m_text += R"("")";
    }
}

void EventShape::WriteFurtherFields(const GatheredFields& event) {
    for (const std::size_t index : SortedFields(event, GatheredFields::head)) {
        const std::u16string_view name = event.GetPlaces()[index].Name();
        if (TLog::IsFurtherField(name)) {
            m_text += ',';
            m_text += Quoted(name);
            m_text += ':';
            WriteField(event, index);
        }
    }
}

void EventShape::WriteField(const GatheredFields& event, std::size_t index) {
    const TLog::GatheredValue& value = event.GetValues()[index];
    const GatheredPlace& place = event.GetPlaces()[index];
    switch (place.kind) {
        case GatheredPlace::Kind::Object:
            return WriteObject(event, value.child);
        case GatheredPlace::Kind::Constant:
            m_text += Quoted(value.text.Units());
            return;
        default:
            m_steps.push_back({{}, index, place.kind == GatheredPlace::Kind::Text});
            m_ends.push_back(m_text.size());
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
        m_text += Quoted(event.GetPlaces()[index].Name());
        m_text += ':';
        WriteField(event, index);
    }
    m_text += '}';
}

// Mostly the names are the very same texts, and the bytes say all.
bool EventShape::Fits(const GatheredFields& event) const noexcept {
    static_assert(std::has_unique_object_representations_v<GatheredPlace>);
    const auto places = event.GetPlaces();
    if (places.size() != m_places.size() || places.empty()) {
        return places.size() == m_places.size();
    }
    return std::memcmp(places.data(), m_places.data(), places.size_bytes()) == 0 ||
           std::equal(places.begin(),
                      places.end(),
                      m_places.begin(),
                      [](const GatheredPlace& one, const GatheredPlace& other) {
                          return one.object == other.object && one.kind == other.kind &&
                                 one.constant == other.constant && one.Name() == other.Name();
                      });
}

std::size_t EventShapes::SlotOf(uint64 key) noexcept {
    // The upper bits of the product depend on all of the key.
    constexpr uint64 goldenRatio = 0x9E3779B97F4A7C15;
    return static_cast<std::size_t>(key * goldenRatio >> (64 - slotBits));
}

const EventShape& EventShapes::Get(const GatheredFields& event) {
    if (event.GetPlaces().size() > mostFields) {
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
