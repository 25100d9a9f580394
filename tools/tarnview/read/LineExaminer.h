#pragma once

#include "read/LineParser.h"
#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnview {

/// A raw line that has been parsed, with what is wrong with it.
struct ParsedLine {
    enum class State { Good, HasDuplicate, HasWrongField, Unreadable, TooLong };

    void SetResult(LineParser::Result result, const LineParser& parser, std::string_view text);

    LogLine line;
    std::uint64_t number = 0;  ///< within its file, from 1 on
    State state = State::Good;
    std::string detail;        ///< of what is wrong
    std::int64_t leftOut = 0;  ///< lines that the program has left out on purpose, as it says here
    Microseconds lateness =
        0;  ///< how much later than their times it writes lines, as it says here
};

/// Valid until the parser is used again.
ParsedLine ParseLine(LineParser& parser, std::string_view text, std::uint64_t number);

/// Takes the parsed lines of one file in their order, and reports what is wrong with them and with
/// the order of their times, and what the host says is missing. One for each file, for clocks are
/// compared within a file only.
class LineExaminer {
public:
    /// Without `problems` nothing is reported.
    explicit LineExaminer(Problems* problems, Microseconds lateness = 0)
        : m_problems(problems),
          m_lateness(lateness) {}

    /// The line; null if it cannot be used.
    const LogLine* Examine(const ParsedLine& parsed, const Place& place);

    /// How much later than their times programs have said that they write lines, here or before.
    Microseconds Lateness() const { return m_lateness; }

private:
    void Report(ProblemKind kind, const Place& place, std::string_view detail);
    void CheckClock(const LogLine& line, const Place& place);
    void CheckLosses(const LogLine& line, const Place& place);

    Problems* m_problems;
    Microseconds m_lastTime = 0;
    Microseconds m_lateness;
};

}  // namespace tarnview
