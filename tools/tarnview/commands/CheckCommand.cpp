#include "commands/CheckCommand.h"

#include "commands/LoadTrees.h"
#include "export/Json.h"
#include "model/FiguresCheck.h"
#include "model/Joiner.h"
#include "model/ProcessWatch.h"
#include "model/SeenIds.h"
#include "model/SponsorCheck.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <set>
#include <string>

namespace tarnview {

namespace {

class Checker {
public:
    Checker(Problems& problems, const LogScanner& scanner, const Filter& filter)
        : m_problems(problems),
          m_filter(filter),
          m_scanner(scanner),
          m_figures(problems),
          m_joiner(
              problems,
              [this](Activity&& activity) { Count(activity); },
              [this](const LogLine& end) { return WasBegunElsewhere(end); }),
          m_sponsors(m_joiner, m_ids, problems) {}

    void Take(const LogLine& line, const Place& place) {
        ++m_lines;
        m_messages += line.kind == LineKind::Message ? 1U : 0U;
        m_processes.insert(line.process);
        m_watch.Take(line, place);
        TakeId(line, place);
        m_joiner.Take(line, place);
        m_figures.Take(line, place);
    }

    void Finish() {
        m_watch.ReportDead(m_joiner.Open(), m_problems);
        m_joiner.Finish();
        m_sponsors.Finish();
    }

    void PrintSummary(std::ostream& out) const {
        out << m_lines << " lines, " << m_ended << " activities, " << m_failed << " failed, "
            << m_open << " never ended, " << m_messages << " messages\n";
        for (std::size_t index = 0; index < problemKinds; ++index) {
            const auto kind = static_cast<ProblemKind>(index);
            const std::uint64_t count = m_problems.Count(kind);
            if (count != 0) {
                out << CountOf(kind, count) << " (" << WordFor(kind) << ")\n";
            }
        }
        out << (m_problems.Total() == 0 ? "the log is whole" : "the log is not whole");
        out << (m_scanner.HasLineNumbers() || m_lines == 0
                    ? "\n"
                    : "; its lines have no numbers (seq), so whole activities may be missing\n");
    }

    void PrintJson(std::ostream& out) const {
        Json json(out);
        const auto member = [&](std::string_view name, std::uint64_t count) {
            json.Member(name, static_cast<long long>(count));
        };
        json.BeginObject();
        json.Key("whole");
        json.Boolean(m_problems.Total() == 0);
        json.Key("numbered");
        json.Boolean(m_scanner.HasLineNumbers());
        member("lines", m_lines);
        member("activities", m_ended);
        member("failed", m_failed);
        member("never_ended", m_open);
        member("messages", m_messages);
        json.Key("problems");
        json.BeginObject();
        for (std::size_t index = 0; index < problemKinds; ++index) {
            const auto kind = static_cast<ProblemKind>(index);
            if (m_problems.Count(kind) != 0) {
                member(WordFor(kind), m_problems.Count(kind));
            }
        }
        json.EndObject();
        json.EndObject();
        json.EndLine();
    }

private:
    void TakeId(const LogLine& line, const Place& place) {
        if (!line.IsOfActivity()) {
            return;
        }
        const bool isOpen = m_joiner.FindOpen(std::string(line.id)) != nullptr;
        if (line.kind == LineKind::End) {
            // One without a begin is in the log all the same.
            if (!isOpen && m_ids.Add(line.process, line.id)) {
                m_sponsors.Take(line, place);
            }
            return;
        }
        m_sponsors.Take(line, place);
        // One that is open already is reported by the joiner; at depth 0 an adopted context may
        // well show an id once more.
        if (!m_ids.Add(line.process, line.id) && line.depth != 0 && !isOpen) {
            m_problems.Report(
                ProblemKind::RepeatedId, place, std::string(line.id) + " has been used before");
        }
    }

    // A forked process ends what its parent has begun, and the parent may have ended it before.
    bool WasBegunElsewhere(const LogLine& end) const {
        return std::any_of(m_processes.begin(), m_processes.end(), [&](std::int64_t process) {
            return process != end.process && m_ids.Has(process, end.id);
        });
    }

    void Count(const Activity& activity) {
        if (!m_filter.Passes(activity)) {
            return;
        }
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
    const Filter& m_filter;
    const LogScanner& m_scanner;
    FiguresCheck m_figures;
    SeenIds m_ids;
    Joiner m_joiner;
    SponsorCheck m_sponsors;
    ProcessWatch m_watch;
    std::set<std::int64_t> m_processes;
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
    Checker checker(input.Findings(), input.Scanner(), options.filter);
    ParserOptions parsing = ParsingFor(options.filter);
    parsing.isStrict = true;
    input.Scanner().Scan(
        parsing, [&](const LogLine& line, const Place& place) { checker.Take(line, place); });
    checker.Finish();
    input.EndPass();
    if (!options.isQuiet) {
        if (options.isJson) {
            checker.PrintJson(context.out);
        } else {
            checker.PrintSummary(context.out);
        }
    }
    return input.Findings().Total() == 0 ? exitSuccess : exitNegative;
}

}  // namespace tarnview
