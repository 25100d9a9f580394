#include "read/LineExaminer.h"

#include "read/LeftOut.h"

#include <algorithm>
#include <string>
#include <utility>

namespace tarnview {

namespace {

// Threads hand in their lines a little out of order; that is no clock that went back.
constexpr Microseconds clockTolerance = 1'000'000;

std::string Excerpt(std::string_view text) {
    constexpr std::size_t length = 60;
    return std::string(text.substr(0, length)) + (text.size() > length ? "..." : "");
}

}  // namespace

ParsedLine ParseLine(LineParser& parser, std::string_view text, std::uint64_t number) {
    ParsedLine parsed;
    parsed.number = number;
    parsed.SetResult(parser.Parse(text, parsed.line), parser, text);
    return parsed;
}

void ParsedLine::SetResult(LineParser::Result result,
                           const LineParser& parser,
                           std::string_view text) {
    const bool tellsOfRules = line.event == leftOutEvent || line.event == keepRulesEvent;
    leftOut = tellsOfRules ? CountLeftOut(text) : 0;
    lateness = tellsOfRules ? ReadLateness(text) : 0;
    switch (result) {
        case LineParser::Result::Good:
            state = State::Good;
            break;
        case LineParser::Result::Flawed:
            state = parser.HasDuplicate() ? State::HasDuplicate : State::HasWrongField;
            detail = parser.Detail();
            break;
        case LineParser::Result::Unreadable:
            state = State::Unreadable;
            detail = parser.Detail() + ": " + Excerpt(text);
            break;
    }
}

const LogLine* LineExaminer::Examine(const ParsedLine& parsed, const Place& place) {
    switch (parsed.state) {
        case ParsedLine::State::Good:
            break;
        case ParsedLine::State::HasDuplicate:
            Report(ProblemKind::DuplicateField, place, parsed.detail);
            break;
        case ParsedLine::State::HasWrongField:
            Report(ProblemKind::WrongField, place, parsed.detail);
            break;
        case ParsedLine::State::Unreadable:
            Report(ProblemKind::UnreadableLine, place, parsed.detail);
            return nullptr;
        case ParsedLine::State::TooLong:
            Report(ProblemKind::LongLine, place, "");
            return nullptr;
    }
    const LogLine& line = parsed.line;
    if (line.IsOfActivity() && (line.id.empty() || line.name.data() == nullptr)) {
        Report(ProblemKind::WrongField, place, line.id.empty() ? "id" : "name");
        return nullptr;
    }
    m_lateness = std::max(m_lateness, parsed.lateness);
    CheckClock(line, place);
    CheckLosses(line, place);
    return &line;
}

// The host begins a report so, which names each kind of loss with its number:
// "Missing in this log: refused events: 3; lines that could not be written: 12".
void LineExaminer::CheckLosses(const LogLine& line, const Place& place) {
    constexpr std::string_view beginning = "Missing in this log";
    if (line.kind != LineKind::Message || line.message.substr(0, beginning.size()) != beginning) {
        return;
    }
    std::uint64_t lost = 0;
    std::uint64_t number = 0;
    for (const char letter : line.message.substr(beginning.size())) {
        if (letter >= '0' && letter <= '9') {
            constexpr std::uint64_t most = 1'000'000'000'000'000;
            number = std::min(number * 10 + static_cast<std::uint64_t>(letter - '0'), most);
        } else {
            lost += std::exchange(number, 0);
        }
    }
    lost += number;
    if (m_problems != nullptr) {
        m_problems->Report(
            ProblemKind::LostLines, place, line.message, std::max<std::uint64_t>(lost, 1));
    }
}

void LineExaminer::CheckClock(const LogLine& line, const Place& place) {
    if (line.time == 0) {
        return;
    }
    if (line.time + clockTolerance + m_lateness < m_lastTime) {
        Report(ProblemKind::ClockJump,
               place,
               "from " + FormatTimestamp(m_lastTime) + " to " + FormatTimestamp(line.time));
    }
    m_lastTime = line.time;
}

void LineExaminer::Report(ProblemKind kind, const Place& place, std::string_view detail) {
    if (m_problems != nullptr) {
        m_problems->Report(kind, place, detail);
    }
}

}  // namespace tarnview
