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

/// Shared texts that come and go with every scope. A thread keeps a few that have no owner any
/// more, and reuses their memory for the next ones, without a lock. Nothing of this is charged to
/// the host's memory frames, except for the characters of long texts. A text may be released on
/// another thread than the one that made it, and at any time of a thread's life.
namespace cvlsys {

/// A text of these units. Its only owner may write to it. Throws `std::bad_alloc`.
CVLSYS_API std::shared_ptr<std::string> MakeText(std::string_view units);
CVLSYS_API std::shared_ptr<std::u16string> MakeText(std::u16string_view units);

/// The longest text that is overwritten in place.
inline constexpr std::size_t maxRewritableBytes = 256;

/// Whether a text comes from `MakeText` and is short enough to be overwritten: its characters are
/// not constant, and only its owners refer to them.
CVLSYS_API bool IsRewritable(const std::shared_ptr<const std::string>& text) noexcept;
CVLSYS_API bool IsRewritable(const std::shared_ptr<const std::u16string>& text) noexcept;

/// Makes `text` hold these units: in the memory that it has, if it suffices and nobody else holds
/// it. The text must be null, live as long as the process or come from `MakeText`, which a build
/// with assertions checks. Throws `std::bad_alloc`; nothing has happened then.
template <class Unit>
void Rewrite(std::shared_ptr<const std::basic_string<Unit>>& text,
             std::basic_string_view<Unit> units) {
    if (isRecycling && text.use_count() == 1 && units.size() <= text->capacity() &&
        text->capacity() <= maxRewritableBytes / sizeof(Unit)) {
        assert(IsRewritable(text));
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
