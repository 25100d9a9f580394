#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/host/Recycling.h"
#include "cvlsys/host/ShortCopy.h"

#include <atomic>
#include <cassert>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

/// Shared texts that come and go with every scope. A thread keeps a few that nobody holds any more,
/// with the memory of their characters, and makes the next ones of them, without a lock. Nothing of
/// this is charged to the host's memory frames, except for the characters of long texts. A text may
/// be let go of on another thread than the one that made it, and at any time of a thread's life.
namespace cvlsys {

/// A text of these units. Its only owner may write to it. Throws `std::bad_alloc`.
CVLSYS_API std::shared_ptr<std::string> MakeText(std::string_view units);
CVLSYS_API std::shared_ptr<std::u16string> MakeText(std::u16string_view units);

/// How long the characters of a text may be that is written anew.
inline constexpr std::size_t mostBytesToRewrite = 256;

/// Whether a text is one of `MakeText` and short enough to be written anew: its characters are no
/// constants, and nobody but its owners knows of them.
CVLSYS_API bool IsMadeToRewrite(const std::shared_ptr<const std::string>& text) noexcept;
CVLSYS_API bool IsMadeToRewrite(const std::shared_ptr<const std::u16string>& text) noexcept;

/// Makes `text` hold these units: in the memory that it has, if it suffices and nobody else holds
/// it. The text must be null, live as long as the process or come from `MakeText`, which a build
/// with assertions checks. Throws `std::bad_alloc`; nothing has happened then.
template <class Unit>
void Rewrite(std::shared_ptr<const std::basic_string<Unit>>& text,
             std::basic_string_view<Unit> units) {
    if (isRecycling && text.use_count() == 1 && units.size() <= text->capacity() &&
        text->capacity() <= mostBytesToRewrite / sizeof(Unit)) {
        assert(IsMadeToRewrite(text));
        // What the last of the others did with the text happened before.
        std::atomic_thread_fence(std::memory_order_acquire);
        auto& own = const_cast<std::basic_string<Unit>&>(*text);
        if (own.size() != units.size()) {
            own.resize(units.size());
        }
        CopyShort(own.data(), units.data(), units.size() * sizeof(Unit));
    } else {
        text = MakeText(units);
    }
}

}  // namespace cvlsys
