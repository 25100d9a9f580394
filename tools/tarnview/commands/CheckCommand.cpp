#include "commands/CheckCommand.h"

#include "commands/Input.h"
#include "model/FiguresCheck.h"
#include "model/Joiner.h"
#include "model/SeenIds.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace tarnview {

namespace {

// With this the host begins its message about lines that it could not write.
constexpr std::string_view lostLinesMessage = "Missing in this log";

class Checker {
public:
    explicit Checker(Problems& problems)
        : m_problems(problems),
          m_figures(problems),
          m_joiner(problems, [this](Activity&& activity) { Count(activity); }) {}

    void Take(const LogLine& line, const Place& place) {
        ++m_lines;
        if (line.kind == LineKind::Message) {
            TakeMessage(line, place);
        }
        // One that is open already is reported by the joiner; at depth 0 an adopted context may
        // well show an id once more.
        if (line.kind == LineKind::Begin && !m_ids.Add(line.process, line.id) && line.depth != 0 &&
            m_joiner.FindOpen(std::string(line.id)) == nullptr) {
            m_problems.Report(
                ProblemKind::RepeatedId, place, std::string(line.id) + " has been used before");
        }
        m_joiner.Take(line, place);
        m_figures.Take(line, place);
    }

    void Finish() { m_joiner.Finish(); }

    void PrintSummary(std::ostream& out) const {
        out << m_lines << " lines, " << m_ended << " activities, " << m_failed << " failed, "
            << m_open << " never ended, " << m_messages << " messages\n";
        for (std::size_t index = 0; index < problemKinds; ++index) {
            const auto kind = static_cast<ProblemKind>(index);
            const std::uint64_t count = m_problems.Count(kind);
            if (count != 0) {
                out << count << ' ' << (count == 1 ? DescriptionOf(kind) : PluralOf(kind)) << " ("
                    << WordFor(kind) << ")\n";
            }
        }
        out << (m_problems.Total() == 0 ? "the log is whole\n" : "the log is not whole\n");
    }

private:
    void TakeMessage(const LogLine& line, const Place& place) {
        ++m_messages;
        if (line.message.substr(0, lostLinesMessage.size()) == lostLinesMessage) {
            m_problems.Report(ProblemKind::LostLines, place, line.message);
        }
    }

    void Count(const Activity& activity) {
        if (activity.hasEnd) {
            ++m_ended;
            m_failed += activity.IsFailure() ? 1U : 0U;
        } else {
            ++m_open;
            m_problems.Report(
                ProblemKind::NeverEnded, activity.beginPlace, activity.name + " " + activity.id);
        }
    }

    Problems& m_problems;
    FiguresCheck m_figures;
    Joiner m_joiner;
    SeenIds m_ids;
    std::uint64_t m_lines = 0;
    std::uint64_t m_messages = 0;
    std::uint64_t m_ended = 0;
    std::uint64_t m_failed = 0;
    std::uint64_t m_open = 0;
};

}  // namespace

int RunCheck(const CheckOptions& options, Context& context) {
    Input input(options.input, context);
    for (const ProblemKind kind : options.ignored) {
        input.Findings().Ignore(kind);
    }
    Checker checker(input.Findings());
    input.Scanner().Scan({.isStrict = true}, [&](const LogLine& line, const Place& place) {
        checker.Take(line, place);
    });
    checker.Finish();
    input.Finish();
    if (!options.isQuiet) {
        checker.PrintSummary(context.out);
    }
    return input.Findings().Total() == 0 ? exitSuccess : exitFound;
}

}  // namespace tarnview
