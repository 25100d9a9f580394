#pragma once

#include "LineFacts.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <string>
#include <unordered_map>

namespace tarn {

/// What was left out since the log said so last. Used by one thread at a time.
class LeftOut {
public:
    /// Further names count together, so that a program that makes names without end does not fill
    /// the memory.
    static constexpr std::size_t mostNames = 1000;

    void CountTree() noexcept { ++m_trees; }

    /// A line of a tree that is left out. Throws `std::bad_alloc`, and then the line counts all the
    /// same.
    void CountLine(const LineFacts& line);

    /// A tree that was written without having been judged.
    void CountUnjudged() noexcept { ++m_unjudged; }

    bool IsEmpty() const noexcept { return m_lines == 0 && m_unjudged == 0; }

    /// The event "tarn-left-out". Lines come so many seconds later than their times at most. Throws
    /// `std::bad_alloc`.
    TLog::Event ToEvent(double lateness = 0) const;

private:
    /// Activities of one name that have ended.
    struct Sums {
        uint64 ended = 0;
        uint64 failed = 0;
        double elapsed = 0;
        double exclusive = 0;
    };

    uint64 m_trees = 0;
    uint64 m_lines = 0;
    uint64 m_unjudged = 0;
    std::unordered_map<std::string, Sums> m_names;
    Sums m_others;
};

}  // namespace tarn
