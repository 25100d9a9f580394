#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace tarn {

/// A name of activities, at the place in a program where they begin, that remembers whether it is
/// switched off:
///
///     static constinit tarn::ActivityName query{"query"};
///     const tarn::ActivityScope scope(query, {{"table", table}});
///
/// As long as the set of names that are off (`TarnSettings::SetOffs`) stays as it is, a scope finds
/// that out by two loads, and takes no lock. Make one for each place, and keep it: any number of
/// threads may use it at a time. It means no more than its text does.
class ActivityName {
public:
    /// The text, in UTF-8, is not copied, and must stay what it is as long as the object is used.
    /// Null is the empty name.
    constexpr explicit ActivityName(const char* text) noexcept
        : m_text(text != nullptr ? text : "") {}

    ~ActivityName() = default;
    ActivityName(const ActivityName&) = delete;
    ActivityName& operator=(const ActivityName&) = delete;

    const char* GetText() const noexcept { return m_text; }

private:
    friend class TarnSettings;

    const char* m_text;

    // The generation of the set that was looked into, and in the lowest bit whether the name was
    // there; 0 before that.
    mutable std::atomic<uint64> m_verdict{0};
};

}  // namespace tarn
