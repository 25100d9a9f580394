#include "EventRecord.h"

#include "cvlsys/host/RecycledBlocks.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace Metrics {

/// What every event has, as it stands at the beginning of an inline record's content.
struct EventRecord::Fixed {
    uint64 id;
    uint64 contextId;
    uint64 flags;
    int64 time;
    uint64 wallSeconds;
    uint32 wallMicros;
    MetricsEventType type;
    uint64 pairCount;
};

namespace {

/// Stands before each value; the scalar or the characters follow.
struct ValueHead {
    uint32 type;
    uint32 textBytes;
};

constexpr std::size_t Aligned(std::size_t bytes) noexcept {
    return (bytes + EventRecord::alignment - 1) & ~(EventRecord::alignment - 1);
}

/// Whether the value is of a known kind and holds exactly what goes with it.
bool IsPlain(const MetricsValue& value) noexcept {
    switch (value.type) {
        case MetricsValue::MV_Int64:
        case MetricsValue::MV_Bool:
        case MetricsValue::MV_Double:
            return value.utf8 == nullptr && value.utf16 == nullptr;
        case MetricsValue::MV_Utf8String:
            return value.utf8 != nullptr && value.utf16 == nullptr;
        case MetricsValue::MV_Utf16String:
            return value.utf16 != nullptr && value.utf8 == nullptr;
        default:
            return false;
    }
}

std::size_t TextBytes(const MetricsValue& value) noexcept {
    if (value.type == MetricsValue::MV_Utf16String) {
        return value.utf16->size() * sizeof(char16_t);
    }
    return value.type == MetricsValue::MV_Utf8String ? value.utf8->size() : 0;
}

bool IsText(uint32 type) noexcept {
    return type == MetricsValue::MV_Utf8String || type == MetricsValue::MV_Utf16String;
}

/// The room for a value; more than a record may have for one that has no place in it.
std::size_t BytesForValue(const MetricsValue& value) noexcept {
    if (!IsPlain(value)) {
        return EventRecord::largest + 1;
    }
    const std::size_t content = IsText(value.type) ? TextBytes(value) : sizeof(value.integer);
    return content > EventRecord::largest ? content : sizeof(ValueHead) + Aligned(content);
}

class Writer {
public:
    explicit Writer(std::byte* place) noexcept : m_place(place) {}

    template <class T>
    void Write(const T& content) noexcept {
        Write(&content, sizeof content);
    }

    void Write(const MetricsValue& value) noexcept {
        const std::size_t textBytes = TextBytes(value);
        Write(ValueHead{value.type, static_cast<uint32>(textBytes)});
        if (value.type == MetricsValue::MV_Utf16String) {
            Write(value.utf16->data(), textBytes);
        } else if (value.type == MetricsValue::MV_Utf8String) {
            Write(value.utf8->data(), textBytes);
        } else {
            Write(value.integer);
        }
    }

private:
    void Write(const void* content, std::size_t bytes) noexcept {
        std::memcpy(m_place, content, bytes);
        m_place += Aligned(bytes);
    }

    std::byte* m_place;
};

class Reader {
public:
    explicit Reader(const std::byte* place) noexcept : m_place(place) {}

    template <class T>
    T Read() noexcept {
        T content;
        std::memcpy(&content, m_place, sizeof content);
        m_place += Aligned(sizeof content);
        return content;
    }

    MetricsValue ReadValue() {
        const auto head = Read<ValueHead>();
        MetricsValue value;
        value.type = head.type;
        if (head.type == MetricsValue::MV_Utf16String) {
            const auto* const units = reinterpret_cast<const char16_t*>(m_place);
            value.utf16 = cvlsys::MakeRecycled<const std::u16string>(
                units, head.textBytes / sizeof(char16_t));
            m_place += Aligned(head.textBytes);
        } else if (head.type == MetricsValue::MV_Utf8String) {
            const auto* const units = reinterpret_cast<const char*>(m_place);
            value.utf8 = cvlsys::MakeRecycled<const std::string>(units, head.textBytes);
            m_place += Aligned(head.textBytes);
        } else {
            value.integer = Read<int64>();
        }
        return value;
    }

private:
    const std::byte* m_place;
};

}  // namespace

std::size_t EventRecord::BytesFor(const MetricsEvent& event) noexcept {
    constexpr std::size_t boxed = sizeof(EventRecord) + Aligned(sizeof(MetricsEvent*));
    std::size_t bytes = sizeof(EventRecord) + sizeof(Fixed) + BytesForValue(event.name) +
                        BytesForValue(event.value);
    for (const auto& [name, value] : event.pairs) {
        bytes += BytesForValue(name) + BytesForValue(value);
        if (bytes > largest) {
            break;
        }
    }
    return bytes > largest ? boxed : bytes;
}

EventRecord& EventRecord::Write(std::byte* place, std::size_t bytes, MetricsEvent&& event) {
    if (bytes < sizeof(EventRecord) + sizeof(Fixed)) {
        auto* const box = new MetricsEvent(std::move(event));
        auto* const record = new (place) EventRecord(bytes, Form::Boxed);
        Writer(record->Content()).Write(box);
        return *record;
    }
    auto* const record = new (place) EventRecord(bytes, Form::Inline);
    Writer writer(record->Content());
    writer.Write(Fixed{.id = event.id,
                       .contextId = event.contextId,
                       .flags = event.flags,
                       .time = event.time,
                       .wallSeconds = event.wallSeconds,
                       .wallMicros = event.wallMicros,
                       .type = event.type,
                       .pairCount = event.pairs.size()});
    writer.Write(event.name);
    writer.Write(event.value);
    for (const auto& [name, value] : event.pairs) {
        writer.Write(name);
        writer.Write(value);
    }
    return *record;
}

void EventRecord::WriteGap(std::byte* place, std::size_t bytes) noexcept {
    // At the very end of a ring there may be room for half a head only; a gap has no ticket.
    const uint32 head[] = {static_cast<uint32>(bytes), static_cast<uint32>(Form::Gap)};
    std::memcpy(place, head, sizeof head);
}

void EventRecord::Read(MetricsEvent& event) {
    Reader reader(Content());
    if (m_form == Form::Boxed) {
        const std::unique_ptr<MetricsEvent> box(reader.Read<MetricsEvent*>());
        event = std::move(*box);
        return;
    }
    const auto fixed = reader.Read<Fixed>();
    event.id = fixed.id;
    event.contextId = fixed.contextId;
    event.flags = fixed.flags;
    event.time = fixed.time;
    event.wallSeconds = fixed.wallSeconds;
    event.wallMicros = fixed.wallMicros;
    event.type = fixed.type;
    event.name = reader.ReadValue();
    event.value = reader.ReadValue();
    event.pairs.clear();
    event.pairs.reserve(fixed.pairCount);
    for (uint64 left = fixed.pairCount; left != 0; --left) {
        MetricsValue name = reader.ReadValue();
        event.pairs.emplace_back(std::move(name), reader.ReadValue());
    }
}

void EventRecord::Discard() noexcept {
    if (m_form == Form::Boxed) {
        delete Reader(Content()).Read<MetricsEvent*>();
    }
}

}  // namespace Metrics
