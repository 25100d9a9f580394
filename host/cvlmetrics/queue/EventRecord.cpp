#include "EventRecord.h"

#include "EventCopy.h"
#include "StaticCharacters.h"

#include "cvlsys/host/ShortCopy.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace Metrics {

/// What every event has: the beginning of an inline record's content.
struct EventRecord::Fixed {
    uint64 id;
    uint64 contextId;
    uint64 flags;
    int64 time;
    uint64 wallSeconds;
    uint32 wallMicros;
    MetricsEventType type;
};

/// The content of a record whose event is on the heap.
struct EventRecord::Box {
    MetricsEvent* event;
    std::size_t heapBytes;
};

namespace {

/// What a value's first word means, in its lowest bits. The rest of the word is the value itself,
/// or the kind of the value in the next word, or how many bytes of text follow.
enum class Tag : uint64 { StaticUtf16, StaticUtf8, ShortInteger, Scalar, Utf16, Utf8 };

constexpr int tagBits = 3;
constexpr uint64 tagMask = (uint64{1} << tagBits) - 1;
constexpr std::size_t wordBytes = sizeof(uint64);

// The lowest bits of an address are free.
static_assert(alignof(std::string) > tagMask && alignof(std::u16string) > tagMask);
static_assert(EventRecord::alignment == wordBytes);

constexpr std::size_t Aligned(std::size_t bytes) noexcept {
    return (bytes + wordBytes - 1) & ~(wordBytes - 1);
}

constexpr uint64 Word(Tag tag, uint64 content) noexcept {
    return content << tagBits | static_cast<uint64>(tag);
}

template <class Unit>
constexpr bool isNarrow = sizeof(Unit) == 1;

constexpr std::size_t mostDigits = std::numeric_limits<uint64>::digits10 + 1;

template <class Unit>
using SharedText = std::shared_ptr<const std::basic_string<Unit>>;

/// Whether the value is of a known kind and holds exactly what goes with it.
bool IsPlain(const MetricsValue& value) noexcept {
    switch (value.type) {
        case MetricsValue::MV_Int64:
        case MetricsValue::MV_Bool:
        case MetricsValue::MV_Double:
            return value.utf8 == nullptr && value.utf16 == nullptr;
        case MetricsValue::MV_Utf8String:
            return value.utf8 != nullptr && value.utf16 == nullptr && value.integer == 0;
        case MetricsValue::MV_Utf16String:
            return value.utf16 != nullptr && value.utf8 == nullptr && value.integer == 0;
        default:
            return false;
    }
}

/// Puts values one behind the other, up to an end. Each function gives the place behind what it
/// has put; null stands for a value that has no place in a record, or does not fit in.
class Placer {
public:
    /// The name, the value and the pairs of an event or a statement.
    template <class Said>
    [[gnu::always_inline]] static std::byte* PutWhatIsSaid(std::byte* to,
                                                           const std::byte* end,
                                                           const Said& said) {
        to = Put(to, end, said.name);
        to = to != nullptr ? Put(to, end, said.value) : nullptr;
        if (to != nullptr) {
            said.pairs.ForEachWhile([&to, end](const PairView& pair) {
                to = Put(to, end, pair.name);
                to = to != nullptr ? Put(to, end, pair.value) : nullptr;
                return to != nullptr;
            });
        }
        return to;
    }

    [[gnu::always_inline]] static std::byte* Put(std::byte* to,
                                                 const std::byte* end,
                                                 const Scope::FinalEvent& statement) {
        to = PutWord(to, end, statement.pairs.Size() << 32 | static_cast<uint64>(statement.type));
        return to != nullptr ? PutWhatIsSaid(to, end, statement) : nullptr;
    }

    static std::byte* Put(std::byte* to, const std::byte* end, const EndEvents& events) {
        to = Put(to, end, events.GetClose().name);
        const Scope::FinalEvent* statement = events.GetStatements();
        for (std::size_t left = events.CountLeft(); to != nullptr && --left != 0; ++statement) {
            to = Put(to, end, *statement);
        }
        return to;
    }

private:
    // What most values are is dealt with where it is asked for.
    [[gnu::always_inline]] static std::byte* Put(std::byte* to,
                                                 const std::byte* end,
                                                 const ValueView& view) {
        switch (view.GetKind()) {
            case ValueView::Kind::Int64:
                return PutInteger(to, end, view.GetInteger());
            case ValueView::Kind::Shared:
                return host::IsStatic(view.GetShared()) ? PutStatic(to, end, view.GetShared())
                                                        : PutOther(to, end, view);
            case ValueView::Kind::Utf8:
                return PutText(to, end, view.GetUtf8());
            default:
                return PutOther(to, end, view);
        }
    }

    [[gnu::noinline]] static std::byte* PutOther(std::byte* to,
                                                 const std::byte* end,
                                                 const ValueView& view) {
        switch (view.GetKind()) {
            case ValueView::Kind::Static:
                return PutStatic(to, end, host::ReferToStatic(&view.GetStatic()));
            case ValueView::Kind::Shared:
                return PutText(to,
                               end,
                               view.GetShared() != nullptr ? std::u16string_view(*view.GetShared())
                                                           : std::u16string_view());
            case ValueView::Kind::Bool:
                return PutScalar(
                    to, end, MetricsValue::MV_Bool, static_cast<uint64>(view.GetInteger()));
            case ValueView::Kind::Double:
                return PutScalar(
                    to, end, MetricsValue::MV_Double, std::bit_cast<uint64>(view.GetReal()));
            case ValueView::Kind::Utf16:
                return PutText(to, end, view.GetUtf16());
            case ValueView::Kind::Wide:
                return PutText(to, end, TString(view.GetWide()).View());
            case ValueView::Kind::Digits:
                return PutDigits(to, end, view.GetLargeInteger());
            case ValueView::Kind::Value:
                return Put(to, end, view.GetValue());
            case ValueView::Kind::Int64:
            case ValueView::Kind::Utf8:
                break;
        }
        return Put(to, end, view);
    }

    static std::byte* Put(std::byte* to, const std::byte* end, const MetricsValue& value) noexcept {
        if (!IsPlain(value)) {
            return nullptr;
        }
        switch (value.type) {
            case MetricsValue::MV_Utf8String:
                return PutShared(to, end, value.utf8);
            case MetricsValue::MV_Utf16String:
                return PutShared(to, end, value.utf16);
            case MetricsValue::MV_Int64:
                return PutInteger(to, end, value.integer);
            default:
                return PutScalar(to, end, value.type, static_cast<uint64>(value.integer));
        }
    }

    [[gnu::always_inline]] static std::byte* PutInteger(std::byte* to,
                                                        const std::byte* end,
                                                        int64 value) noexcept {
        const uint64 word = Word(Tag::ShortInteger, static_cast<uint64>(value));
        return static_cast<int64>(word) >> tagBits == value
                   ? PutWord(to, end, word)
                   : PutScalar(to, end, MetricsValue::MV_Int64, static_cast<uint64>(value));
    }

    [[gnu::noinline]] static std::byte* PutScalar(std::byte* to,
                                                  const std::byte* end,
                                                  uint32 type,
                                                  uint64 scalar) noexcept {
        to = PutWord(to, end, Word(Tag::Scalar, type));
        return to != nullptr ? PutWord(to, end, scalar) : nullptr;
    }

    static std::byte* PutDigits(std::byte* to, const std::byte* end, uint64 value) noexcept {
        std::array<char, mostDigits> digits{};
        const char* const behind =
            std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
        return PutText(
            to,
            end,
            std::string_view(digits.data(), static_cast<std::size_t>(behind - digits.data())));
    }

    template <class Unit>
    static std::byte* PutShared(std::byte* to,
                                const std::byte* end,
                                const SharedText<Unit>& text) noexcept {
        return host::IsStaticOrNull(text) ? PutStatic(to, end, text)
                                          : PutText(to, end, std::basic_string_view<Unit>(*text));
    }

    template <class Unit>
    [[gnu::always_inline]] static std::byte* PutStatic(std::byte* to,
                                                       const std::byte* end,
                                                       const SharedText<Unit>& text) noexcept {
        constexpr Tag tag = isNarrow<Unit> ? Tag::StaticUtf8 : Tag::StaticUtf16;
        return PutWord(to, end, reinterpret_cast<uint64>(text.get()) | static_cast<uint64>(tag));
    }

    [[gnu::always_inline]] static std::byte* PutWord(std::byte* to,
                                                     const std::byte* end,
                                                     uint64 word) noexcept {
        if (to == end) {
            return nullptr;
        }
        std::memcpy(to, &word, sizeof word);
        return to + sizeof word;
    }

    template <class Unit>
    static std::byte* PutText(std::byte* to,
                              const std::byte* end,
                              std::basic_string_view<Unit> text) noexcept {
        constexpr Tag tag = isNarrow<Unit> ? Tag::Utf8 : Tag::Utf16;
        const std::size_t bytes = text.size() * sizeof(Unit);
        if (static_cast<std::size_t>(end - to) < wordBytes + Aligned(bytes)) {
            return nullptr;
        }
        const uint64 word = Word(tag, bytes);
        std::memcpy(to, &word, sizeof word);
        to += sizeof word;
        cvlsys::CopyShort(to, text.data(), bytes);
        return to + Aligned(bytes);
    }
};

template <class T>
T ReadAs(const std::byte* from) noexcept {
    T content;
    std::memcpy(&content, from, sizeof content);
    return content;
}

/// Reads values one behind the other.
class Reader {
public:
    explicit Reader(const std::byte* from) noexcept : m_from(from) {}

    [[gnu::always_inline]] ValueView Next() noexcept {
        const uint64 word = NextWord();
        switch (static_cast<Tag>(word & tagMask)) {
            case Tag::StaticUtf16:
                return ValueView::OfStatic(*AddressIn<char16_t>(word));
            case Tag::ShortInteger:
                return static_cast<int64>(word) >> tagBits;
            case Tag::Utf8:
                return ValueView::OfUtf8(Text<char>(word >> tagBits));
            case Tag::Utf16:
                return ValueView::OfUtf16(Text<char16_t>(word >> tagBits));
            case Tag::StaticUtf8:
                return *AddressIn<char>(word);
            case Tag::Scalar:
                break;
        }
        return Scalar(static_cast<uint32>(word >> tagBits));
    }

    PairSpan NextPairs(PairView* room, std::size_t count) noexcept {
        for (PairView* to = room; to != room + count; ++to) {
            const ValueView name = Next();
            new (static_cast<void*>(to)) PairView(name, Next());
        }
        return {room, count};
    }

    uint64 NextWord() noexcept {
        const auto word = ReadAs<uint64>(m_from);
        m_from += wordBytes;
        return word;
    }

private:
    template <class Unit>
    static const std::basic_string<Unit>* AddressIn(uint64 word) noexcept {
        return reinterpret_cast<const std::basic_string<Unit>*>(word & ~tagMask);
    }

    template <class Unit>
    std::basic_string_view<Unit> Text(std::size_t bytes) noexcept {
        const auto* const units = reinterpret_cast<const Unit*>(m_from);
        m_from += Aligned(bytes);
        return {units, bytes / sizeof(Unit)};
    }

    ValueView Scalar(uint32 type) noexcept {
        const auto scalar = ReadAs<int64>(m_from);
        m_from += wordBytes;
        switch (type) {
            case MetricsValue::MV_Bool:
                return scalar != 0;
            case MetricsValue::MV_Double:
                return std::bit_cast<double>(scalar);
            default:
                return scalar;
        }
    }

    const std::byte* m_from;
};

}  // namespace

namespace {

template <class Text>
std::size_t BytesOf(const Text& text) noexcept {
    return text.size() * sizeof(typename Text::value_type);
}

template <class Unit>
std::size_t BytesOf(const SharedText<Unit>& text) noexcept {
    return host::IsStaticOrNull(text) ? 0 : BytesOf(*text);
}

// Of texts only: the rest of a value lies where the event lies.
std::size_t TextBytes(const MetricsValue& value) noexcept {
    return BytesOf(value.utf8) + BytesOf(value.utf16);
}

std::size_t TextBytes(const ValueView& view) noexcept {
    switch (view.GetKind()) {
        case ValueView::Kind::Utf8:
            return BytesOf(view.GetUtf8());
        case ValueView::Kind::Utf16:
            return BytesOf(view.GetUtf16());
        case ValueView::Kind::Wide:
            return std::wstring_view(view.GetWide()).size() * sizeof(char16_t);
        case ValueView::Kind::Shared:
            return BytesOf(view.GetShared());
        case ValueView::Kind::Digits:
            return mostDigits;
        case ValueView::Kind::Value:
            return TextBytes(view.GetValue());
        default:
            return 0;
    }
}

std::size_t HeapBytes(const EventView& event) noexcept {
    std::size_t bytes = sizeof(MetricsEvent) + TextBytes(event.name) + TextBytes(event.value);
    for (const PairView& pair : event.pairs) {
        bytes += sizeof(NameValuePair) + TextBytes(pair.name) + TextBytes(pair.value);
    }
    return bytes;
}

}  // namespace

std::size_t EventRecord::HeapBytesFor(const EventView& event, std::size_t bytes) noexcept {
    static_assert(sizeof(Box) < sizeof(Fixed), "A record that is so short is boxed.");
    return bytes == sizeof(EventRecord) + sizeof(Box) ? HeapBytes(event) : 0;
}

// Small as a record is, it is measured by writing it somewhere.
std::size_t EventRecord::BytesFor(const EventView& event) {
    constexpr std::size_t boxed = sizeof(EventRecord) + sizeof(Box);
    static_assert(sizeof(Box) % alignment == 0);
    // Written before it is read.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written before it is read
    alignas(alignment) std::array<std::byte, largest> place;
    std::byte* const content = place.data() + sizeof(EventRecord);
    const std::byte* const end =
        Placer::PutWhatIsSaid(content + sizeof(Fixed), place.data() + largest, event);
    return end != nullptr ? static_cast<std::size_t>(end - place.data()) : boxed;
}

std::size_t EventRecord::TryWrite(std::byte* place, const EventView& event) {
    return TryWrite(place, largest, event);
}

std::size_t EventRecord::TryWrite(std::byte* place, std::size_t room, const EventView& event) {
    return Finish(
        place,
        Placer::PutWhatIsSaid(place + sizeof(EventRecord) + sizeof(Fixed), place + room, event),
        Form::Inline,
        event.pairs.Size(),
        event);
}

std::size_t EventRecord::TryWrite(std::byte* place, const EndEvents& events) {
    const std::size_t statements = events.CountLeft() - 1;
    if (statements > mostStatements) {
        return 0;
    }
    return Finish(place,
                  Placer::Put(place + sizeof(EventRecord) + sizeof(Fixed), place + largest, events),
                  Form::End,
                  statements,
                  events.GetClose());
}

// Behind the values; `end` is null if they found no place.
inline std::size_t EventRecord::Finish(std::byte* place,
                                       const std::byte* end,
                                       Form form,
                                       std::size_t count,
                                       const EventView& event) noexcept {
    static_assert(offsetof(EventView, id) == offsetof(Fixed, id) &&
                  offsetof(EventView, time) == offsetof(Fixed, time) &&
                  offsetof(EventView, wallMicros) == offsetof(Fixed, wallMicros) &&
                  offsetof(EventView, type) == offsetof(Fixed, type));
    if (end == nullptr) {
        return 0;
    }
    const auto bytes = static_cast<std::size_t>(end - place);
    new (place) EventRecord(bytes, form, count);
    std::memcpy(place + sizeof(EventRecord), &event, sizeof(Fixed));
    return bytes;
}

EventRecord& EventRecord::Write(std::byte* place, std::size_t room, const EventView& event) {
    if (room >= sizeof(EventRecord) + sizeof(Fixed) &&
        TryWrite(place, std::min(room, largest), event) != 0) {
        return *std::launder(reinterpret_cast<EventRecord*>(place));
    }
    return WriteBoxed(place, event);
}

EventRecord& EventRecord::WriteBoxed(std::byte* place, const EventView& event) {
    auto boxed = std::make_unique<MetricsEvent>();
    Copy(event, *boxed);
    const Box box{.event = boxed.release(), .heapBytes = HeapBytes(event)};
    std::memcpy(place + sizeof(EventRecord), &box, sizeof box);
    return *new (place) EventRecord(sizeof(EventRecord) + sizeof box, Form::Boxed, 0);
}

void EventRecord::WriteGap(std::byte* place, std::size_t bytes) noexcept {
    const EventRecord gap(bytes, Form::Gap, 0);
    std::memcpy(place, &gap, offsetof(EventRecord, m_ticket));
}

EventRecord::Head EventRecord::GetHead() const noexcept {
    if (m_form == Form::Boxed) {
        const MetricsEvent& event = *ReadAs<Box>(Content()).event;
        return {event.type, event.id};
    }
    const auto fixed = ReadAs<Fixed>(Content());
    return {fixed.type, fixed.id};
}

EventView EventRecord::View(PairView* room) const noexcept {
    Reader reader(Content() + sizeof(Fixed));
    EventView event;
    std::memcpy(static_cast<void*>(&event), Content(), sizeof(Fixed));
    event.name = reader.Next();
    event.value = reader.Next();
    event.pairs = reader.NextPairs(room, m_count);
    return event;
}

EndEvents EventRecord::ViewEnd(Scope::FinalEvent* statements, PairView* room) const noexcept {
    Reader reader(Content() + sizeof(Fixed));
    EventView close;
    std::memcpy(static_cast<void*>(&close), Content(), sizeof(Fixed));
    close.name = reader.Next();
    for (Scope::FinalEvent* to = statements; to != statements + m_count; ++to) {
        const uint64 word = reader.NextWord();
        const std::size_t pairs = word >> 32;
        const ValueView name = reader.Next();
        new (static_cast<void*>(to))
            Scope::FinalEvent(static_cast<MetricsEventType>(word), name, reader.Next());
        to->pairs = reader.NextPairs(room, pairs);
        room += pairs;
    }
    return {close, statements, m_count};
}

MetricsEvent EventRecord::TakeBoxed() noexcept {
    const std::unique_ptr<MetricsEvent> boxed(ReadAs<Box>(Content()).event);
    return std::move(*boxed);
}

void EventRecord::Discard() noexcept {
    if (m_form == Form::Boxed) {
        delete ReadAs<Box>(Content()).event;
    }
}

std::size_t EventRecord::GetHeapBytes() const noexcept {
    return m_form == Form::Boxed ? ReadAs<Box>(Content()).heapBytes : 0;
}

}  // namespace Metrics
