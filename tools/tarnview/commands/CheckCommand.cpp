#include "commands/CheckCommand.h"

#include "commands/LoadTrees.h"
#include "export/Json.h"
#include "model/LogCheck.h"
#include "read/LogScanner.h"

#include <cstdint>
#include <ostream>

namespace tarnview {

namespace {

void PrintSummary(const LogCheck::Counts& found,
                  const Problems& problems,
                  const LogScanner& scanner,
                  std::ostream& out) {
    out << found.lines << " lines, " << found.ended << " activities, " << found.failed
        << " failed, " << found.neverEnded << " never ended, " << found.messages << " messages\n";
    if (scanner.CountLeftOut() != 0) {
        out << scanner.CountLeftOut() << " more lines left out by keep rules, as chosen\n";
    }
    for (std::size_t index = 0; index < problemKinds; ++index) {
        const auto kind = static_cast<ProblemKind>(index);
        const std::uint64_t count = problems.Count(kind);
        if (count != 0) {
            out << CountOf(kind, count) << " (" << WordFor(kind) << ")\n";
        }
    }
    out << (problems.Total() == 0 ? "the log is whole" : "the log is not whole");
    out << (scanner.HasLineNumbers() || found.lines == 0
                ? "\n"
                : "; its lines have no numbers (seq), so whole activities may be missing\n");
}

void PrintJson(const LogCheck::Counts& found,
               const Problems& problems,
               const LogScanner& scanner,
               std::ostream& out) {
    Json json(out);
    const auto member = [&](std::string_view name, std::uint64_t count) {
        json.Member(name, static_cast<long long>(count));
    };
    json.BeginObject();
    json.Key("whole");
    json.Boolean(problems.Total() == 0);
    json.Key("numbered");
    json.Boolean(scanner.HasLineNumbers());
    member("lines", found.lines);
    member("activities", found.ended);
    member("failed", found.failed);
    member("never_ended", found.neverEnded);
    member("messages", found.messages);
    member("left_out", static_cast<std::uint64_t>(scanner.CountLeftOut()));
    json.Key("problems");
    json.BeginObject();
    for (std::size_t index = 0; index < problemKinds; ++index) {
        const auto kind = static_cast<ProblemKind>(index);
        if (problems.Count(kind) != 0) {
            member(WordFor(kind), problems.Count(kind));
        }
    }
    json.EndObject();
    json.EndObject();
    json.EndLine();
}

}  // namespace

int RunCheck(const CheckOptions& options, Context& context) {
    Input input(options.input, context);
    for (const ProblemKind kind : options.ignored) {
        input.Findings().Ignore(kind);
    }
    LogCheck check(input.Findings(), options.filter);
    ParserOptions parsing = ParsingFor(options.filter);
    parsing.isStrict = true;
    input.Scanner().Scan(parsing,
                         [&](const LogLine& line, const Place& place) { check.Take(line, place); });
    check.Finish();
    input.EndPass();
    const int status = input.FinishQuietly();
    if (!options.isQuiet) {
        const auto print = options.isJson ? PrintJson : PrintSummary;
        print(check.Found(), input.Findings(), input.Scanner(), context.out);
    }
    if (status != exitSuccess) {
        return status;
    }
    return input.Findings().Total() == 0 ? exitSuccess : exitNegative;
}

}  // namespace tarnview
