#include "EventRecord.h"

#include "cvlsys/host/RecycledBlocks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
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

/// Stands before each value; the scalar, the characters or the address of the text follows.
struct ValueHead {
    uint32 type;
    uint32 textBytes;
};

/// In `textBytes`: the text lives as long as the process.
constexpr uint32 isImmortal = 0xFFFFFFFF;

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

/// Puts values one behind the other, up to an end. Each function gives the place behind what it
/// has put; null stands for a value that has no place in a record, or does not fit in.
class Placer {
public:
    explicit Placer(std::byte* end) noexcept : m_end(end) {}

    std::byte* Put(std::byte* to, const EventView& event) const {
        to = Put(to, event.name);
        to = to != nullptr ? Put(to, event.value) : nullptr;
        for (const PairView& pair : event.pairs) {
            if (to == nullptr) {
                break;
            }
            to = Put(to, pair.name);
            to = to != nullptr ? Put(to, pair.value) : nullptr;
        }
        return to;
    }

private:
    // What most values are is dealt with where it is asked for.
    [[gnu::always_inline]] std::byte* Put(std::byte* to, const ValueView& view) const {
        if (view.GetKind() == ValueView::Kind::Int64) {
            return PutWord(to, {MetricsValue::MV_Int64, 0}, view.GetInteger());
        }
        if (view.GetKind() == ValueView::Kind::Shared && view.GetShared() != nullptr &&
            view.GetShared().use_count() == 0) {
            return PutWord(to, {MetricsValue::MV_Utf16String, isImmortal}, view.GetShared().get());
        }
        return PutOther(to, view);
    }

    [[gnu::noinline]] std::byte* PutOther(std::byte* to, const ValueView& view) const {
        switch (view.GetKind()) {
            case ValueView::Kind::Int64:
                return PutWord(to, {MetricsValue::MV_Int64, 0}, view.GetInteger());
            case ValueView::Kind::Shared:
                return PutShared(to, MetricsValue::MV_Utf16String, view.GetShared());
            case ValueView::Kind::Utf8:
                return PutText(to, MetricsValue::MV_Utf8String, view.GetUtf8());
            case ValueView::Kind::Bool:
                return PutWord(to, {MetricsValue::MV_Bool, 0}, view.GetInteger());
            case ValueView::Kind::Double:
                return PutWord(to, {MetricsValue::MV_Double, 0}, view.GetReal());
            case ValueView::Kind::Utf16:
                return PutText(to, MetricsValue::MV_Utf16String, view.GetUtf16());
            case ValueView::Kind::Wide:
                return PutText(to, MetricsValue::MV_Utf16String, TString(view.GetWide()).View());
            case ValueView::Kind::Value:
                break;
        }
        return Put(to, view.GetValue());
    }

    std::byte* Put(std::byte* to, const MetricsValue& value) const noexcept {
        if (!IsPlain(value)) {
            return nullptr;
        }
        if (value.type == MetricsValue::MV_Utf8String) {
            return PutShared(to, value.type, value.utf8);
        }
        if (value.type == MetricsValue::MV_Utf16String) {
            return PutShared(to, value.type, value.utf16);
        }
        return PutWord(to, {value.type, 0}, value.integer);
    }

    template <class Unit>
    std::byte* PutShared(
        std::byte* to,
        uint32 type,
        const std::shared_ptr<const std::basic_string<Unit>>& text) const noexcept {
        if (text == nullptr) {
            return PutText(to, type, std::basic_string_view<Unit>());
        }
        return text.use_count() == 0 ? PutWord(to, {type, isImmortal}, text.get())
                                     : PutText(to, type, std::basic_string_view<Unit>(*text));
    }

    template <class Word>
    std::byte* PutWord(std::byte* to, ValueHead head, Word word) const noexcept {
        static_assert(sizeof head == sizeof word && sizeof word == EventRecord::alignment);
        if (m_end - to < static_cast<std::ptrdiff_t>(2 * sizeof word)) {
            return nullptr;
        }
        std::memcpy(to, &head, sizeof head);
        std::memcpy(to + sizeof head, &word, sizeof word);
        return to + 2 * sizeof word;
    }

    template <class Unit>
    std::byte* PutText(std::byte* to,
                       uint32 type,
                       std::basic_string_view<Unit> text) const noexcept {
        const std::size_t bytes = text.size() * sizeof(Unit);
        const ValueHead head{type, static_cast<uint32>(bytes)};
        const auto left = static_cast<std::size_t>(m_end - to);
        if (bytes > EventRecord::largest || left < sizeof head + Aligned(bytes)) {
            return nullptr;
        }
        std::memcpy(to, &head, sizeof head);
        Copy(to + sizeof head, reinterpret_cast<const std::byte*>(text.data()), bytes);
        return to + sizeof head + Aligned(bytes);
    }

    // Most texts are short: two words that may overlap are quicker than a call.
    static void Copy(std::byte* to, const std::byte* from, std::size_t bytes) noexcept {
        constexpr std::size_t word = sizeof(uint64);
        if (bytes >= word && bytes <= 2 * word) {
            uint64 first = 0;
            uint64 last = 0;
            std::memcpy(&first, from, word);
            std::memcpy(&last, from + bytes - word, word);
            std::memcpy(to, &first, word);
            std::memcpy(to + bytes - word, &last, word);
        } else if (bytes != 0) {
            std::memcpy(to, from, bytes);
        }
    }

    std::byte* const m_end;
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
            value.utf16 = ReadText<char16_t>(head);
        } else if (head.type == MetricsValue::MV_Utf8String) {
            value.utf8 = ReadText<char>(head);
        } else {
            value.integer = Read<int64>();
        }
        return value;
    }

private:
    template <class Unit>
    std::shared_ptr<const std::basic_string<Unit>> ReadText(ValueHead head) {
        using Text = std::basic_string<Unit>;
        if (head.textBytes == isImmortal) {
            return {std::shared_ptr<const Text>(), Read<const Text*>()};
        }
        const auto* const units = reinterpret_cast<const Unit*>(m_place);
        auto text = cvlsys::MakeRecycled<const Text>(units, head.textBytes / sizeof(Unit));
        m_place += Aligned(head.textBytes);
        return text;
    }

    const std::byte* m_place;
};

}  // namespace

// Small as a record is, it is measured by writing it somewhere.
std::size_t EventRecord::BytesFor(const EventView& event) {
    constexpr std::size_t boxed = sizeof(EventRecord) + Aligned(sizeof(MetricsEvent*));
    // Written before it is read.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
    alignas(alignment) std::array<std::byte, largest> place;
    std::byte* const content = place.data() + sizeof(EventRecord);
    const std::byte* const end = Placer(place.data() + largest).Put(content + sizeof(Fixed), event);
    return end != nullptr ? static_cast<std::size_t>(end - place.data()) : boxed;
}

EventRecord& EventRecord::Write(std::byte* place, std::size_t room, const EventView& event) {
    std::byte* const content = place + sizeof(EventRecord);
    if (room < sizeof(EventRecord) + sizeof(Fixed)) {
        return WriteBoxed(place, event);
    }
    const std::byte* const end =
        Placer(place + std::min(room, largest)).Put(content + sizeof(Fixed), event);
    if (end == nullptr) {
        return WriteBoxed(place, event);
    }
    const Fixed fixed{.id = event.id,
                      .contextId = event.contextId,
                      .flags = event.flags,
                      .time = event.time,
                      .wallSeconds = event.wallSeconds,
                      .wallMicros = event.wallMicros,
                      .type = event.type,
                      .pairCount = event.pairs.Size()};
    std::memcpy(content, &fixed, sizeof fixed);
    return *new (place) EventRecord(static_cast<std::size_t>(end - place), Form::Inline);
}

EventRecord& EventRecord::WriteBoxed(std::byte* place, const EventView& event) {
    auto box = std::make_unique<MetricsEvent>();
    event.CopyTo(*box);
    const MetricsEvent* const address = box.release();
    std::memcpy(place + sizeof(EventRecord), &address, sizeof address);
    return *new (place) EventRecord(sizeof(EventRecord) + sizeof address, Form::Boxed);
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
