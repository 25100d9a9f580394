#pragma once

#include "tarn/site.h"

#include <cstdint>

namespace tarn {
namespace detail {

/// Whether the place remembers that its name is off, and the set of such names is still the same.
inline bool IsKnownToBeOff(const abi::tarn_site& site) noexcept {
    const std::uint64_t* const off = __atomic_load_n(&site.off, __ATOMIC_ACQUIRE);
    return off != nullptr && __atomic_load_n(&site.verdict, __ATOMIC_RELAXED) ==
                                 __atomic_load_n(off, __ATOMIC_RELAXED);
}

}  // namespace detail

/// A name of activities, at the place in a program where they begin, that caches whether it is
/// switched off:
///
///     static constinit tarn::ActivityName query{"query"};
///     const tarn::Scope scope(query, {{"table", table}});
///
/// As long as the set of names that are off (`TarnSettings::SetOffs`) does not change, a scope
/// checks this by two loads, without a lock. Make one for each place, and keep it: any number of
/// threads may use it at a time. Names with the same text are the same name.
class ActivityName {
public:
    /// The text is UTF-8 and must outlive the object; null is the empty name.
    constexpr explicit ActivityName(const char* text) noexcept
        : m_text(text != nullptr ? text : "") {}

    ~ActivityName() = default;
    ActivityName(const ActivityName&) = delete;
    ActivityName& operator=(const ActivityName&) = delete;

    const char* GetText() const noexcept { return m_text; }

    /// What it remembers.
    abi::tarn_site& GetSite() const noexcept { return m_site; }

private:
    const char* m_text;
    mutable abi::tarn_site m_site{0, nullptr};
};

}  // namespace tarn
