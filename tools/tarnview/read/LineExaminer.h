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
    std::string detail;  ///< of what is wrong
};

/// Valid until the parser is used again.
ParsedLine ParseLine(LineParser& parser, std::string_view text, std::uint64_t number);

/// Takes the parsed lines of one file in their order, and reports what is wrong with them and with
/// the order of their times, and what the host says is missing. One for each file, for clocks are
/// compared within a file only.
class LineExaminer {
public:
    /// Without `problems` nothing is reported.
    explicit LineExaminer(Problems* problems) : m_problems(problems) {}

    /// The line; null if it cannot be used.
    const LogLine* Examine(const ParsedLine& parsed, const Place& place);

private:
    void Report(ProblemKind kind, const Place& place, std::string_view detail);
    void CheckClock(const LogLine& line, const Place& place);
    void CheckLosses(const LogLine& line, const Place& place);

    Problems* m_problems;
    Microseconds m_lastTime = 0;
};

}  // namespace tarnview
