#include "cvlsys/host/RecycledTexts.h"

#include "FreeList.h"
#include "ThreadEnd.h"
#include "ThreadNumber.h"

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/MemoryCharging.h"
#include "cvlsys/host/RecycledBlocks.h"

#include <cstddef>
#include <new>

namespace cvlsys {

namespace {

// What a thread keeps at most, and how long the texts among it may have been.
constexpr uint32 mostTexts = 64;
constexpr std::size_t mostBytes = maxRewritableBytes;

/// A text and the room for what counts its owners. The text is there as long as the block is.
template <class Unit>
struct TextBlock {
    std::basic_string<Unit> text;
    TextBlock* next = nullptr;
    alignas(std::max_align_t) std::byte control[48];
};

template <class Unit>
using FreeTexts = host::FreeList<TextBlock<Unit>>;

// Trivially destructible, so that it can be asked for as long as the thread runs any code.
struct ThreadTexts {
    FreeTexts<char> narrow;
    FreeTexts<char16_t> wide;

    // Gives them back.
    static void AtThreadEnd() noexcept;
};

CVLSYS_FAST_THREAD_LOCAL ThreadTexts t_texts;

template <class Unit>
FreeTexts<Unit>& Free() noexcept {
    if constexpr (sizeof(Unit) == 1) {
        return t_texts.narrow;
    } else {
        return t_texts.wide;
    }
}

template <class Unit>
void Delete(TextBlock<Unit>* block) noexcept {
    const corvala::memory::UnchargedAllocations uncharged;
    delete block;
}

void ThreadTexts::AtThreadEnd() noexcept {
    t_texts.narrow.Empty(Delete<char>);
    t_texts.wide.Empty(Delete<char16_t>);
}

template <class Unit>
TextBlock<Unit>* New() {
    const corvala::memory::UnchargedAllocations uncharged;
    return new TextBlock<Unit>;
}

template <class Unit>
TextBlock<Unit>* Take() {
    TextBlock<Unit>* const block = Free<Unit>().Take();
    return block != nullptr ? block : New<Unit>();
}

template <class Unit>
void Release(TextBlock<Unit>* block) noexcept {
    FreeTexts<Unit>& texts = Free<Unit>();
    if (texts.count == mostTexts || block->text.capacity() * sizeof(Unit) > mostBytes ||
        !host::ThreadEnd<ThreadTexts>::Watch()) {
        Delete(block);
        return;
    }
    texts.Keep(block);
}

// The count of a text's owners is in the text's own block, which is freed with it.
template <class Unit, class T>
struct WithinBlock {
    using value_type = T;

    explicit WithinBlock(TextBlock<Unit>* textBlock) noexcept : block(textBlock) {}

    template <class U>
    // NOLINTNEXTLINE(google-explicit-constructor): allocators convert to each other
    WithinBlock(const WithinBlock<Unit, U>& other) noexcept : block(other.block) {}

    template <class U>
    struct rebind {  // NOLINT(readability-identifier-naming): named by the language
        using other = WithinBlock<Unit, U>;
    };

    T* allocate(std::size_t /*count*/) noexcept {
        static_assert(sizeof(T) <= sizeof block->control &&
                      alignof(T) <= alignof(std::max_align_t));
        return reinterpret_cast<T*>(block->control);
    }

    void deallocate(T* /*object*/, std::size_t /*count*/) noexcept { Release(block); }

    TextBlock<Unit>* block;
};

struct KeepText {
    void operator()(const void* /*text*/) const noexcept {}
};

template <class Unit>
bool IsInBlock(const std::shared_ptr<const std::basic_string<Unit>>& text) noexcept {
    return std::get_deleter<KeepText>(text) != nullptr;
}

template <class Unit>
void Assign(std::basic_string<Unit>& text, std::basic_string_view<Unit> units) {
    if (units.size() > text.capacity()) {
        const corvala::memory::UnchargedAllocations uncharged;
        text.reserve(units.size());
    }
    if (units.size() != text.size()) {
        text.resize(units.size());
    }
    CopyShort(text.data(), units.data(), units.size() * sizeof(Unit));
}

template <class Unit>
std::shared_ptr<std::basic_string<Unit>> Make(std::basic_string_view<Unit> units) {
    if (!isRecycling || units.size() * sizeof(Unit) > mostBytes) {
        return MakeRecycled<std::basic_string<Unit>>(units);
    }
    TextBlock<Unit>* const block = Take<Unit>();
    try {
        Assign(block->text, units);
    } catch (...) {
        Release(block);
        throw;
    }
    return {&block->text, KeepText(), WithinBlock<Unit, Unit>(block)};
}

}  // namespace

bool IsRewritable(const std::shared_ptr<const std::string>& text) noexcept {
    return IsInBlock(text);
}

bool IsRewritable(const std::shared_ptr<const std::u16string>& text) noexcept {
    return IsInBlock(text);
}

std::shared_ptr<std::string> MakeText(std::string_view units) {
    return Make(units);
}

std::shared_ptr<std::u16string> MakeText(std::u16string_view units) {
    return Make(units);
}

}  // namespace cvlsys
