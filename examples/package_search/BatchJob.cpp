#include "BatchJob.h"

#include "ActivityNames.h"
#include "ActivityTree.h"
#include "LogReport.h"
#include "PackageDatabase.h"
#include "Queries.h"
#include "QueryService.h"
#include "RequestContext.h"
#include "TracedRun.h"

#include "cvlsys/TSystem.h"

#include <algorithm>
#include <iomanip>
#include <memory>
#include <ostream>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace packagesearch {

namespace {

struct Traced {
    int64 scopes = 0;
    LogPosition logStart;
};

RequestAttributes ThisProgramsRequests(const std::string& description) {
    const passwd* const account = getpwuid(geteuid());
    const std::string user =
        account != nullptr ? account->pw_name : "uid " + std::to_string(geteuid());
    return {user, "packages", "main", description};
}

LoadSummary Load(const BatchOptions& options, PackageDatabase& database) {
    const RequestContext request(ThisProgramsRequests("load " + options.statusFile.string()));
    return LoadPackages(options.statusFile, database);
}

std::vector<Query> Choose(const PackageDatabase& database) {
    const RequestContext request(ThisProgramsRequests("choose queries"));
    return ChooseQueries(database);
}

std::string FirstCell(const QueryResult& result) {
    return result.rows.empty() || result.rows.front().empty() ? "-" : result.rows.front().front();
}

void PrintAnswers(std::ostream& out,
                  const std::vector<Query>& queries,
                  const std::vector<Answer>& answers) {
    std::size_t width = 5;
    for (const Query& query : queries) {
        width = std::max(width, query.Text().size());
    }
    const int column = static_cast<int>(width);
    out << std::left << std::setw(column) << "query"
        << "    rows  first\n";
    for (std::size_t index = 0; index < queries.size(); ++index) {
        const Answer& answer = answers[index];
        out << std::left << std::setw(column) << queries[index].Text() << std::right;
        if (answer.error.empty()) {
            out << std::setw(8) << answer.result.rows.size() << "  " << FirstCell(answer.result)
                << '\n';
        } else {
            out << "  failed: " << answer.error << '\n';
        }
    }
}

void RequireAllAnswered(const std::vector<Answer>& answers) {
    const auto isFailed = [](const Answer& answer) { return !answer.error.empty(); };
    const auto failed = std::count_if(answers.begin(), answers.end(), isFailed);
    if (failed != 0) {
        throw std::runtime_error(std::to_string(failed) + " of " + std::to_string(answers.size()) +
                                 " queries failed, the first one with: " +
                                 std::find_if(answers.begin(), answers.end(), isFailed)->error);
    }
}

std::vector<Answer> AnswerQueries(const BatchOptions& options,
                                  const PackageDatabase& database,
                                  const std::vector<Query>& queries) {
    QueryService service(database, options.threads);
    return AskAll(service, queries, options.threads, ThisProgramsRequests({}));
}

// Everything that is traced. The queries are read first: a mistake in their file is not worth
// a load.
Traced RunTraced(const BatchOptions& options, std::ostream& out, std::vector<Answer>& answers) {
    std::vector<Query> queries;
    if (!options.queryFile.empty()) {
        queries = ReadQueryFile(options.queryFile);
    }
    const TracedRun run(options.logFile);
    PackageDatabase database;
    const LoadSummary loaded = Load(options, database);
    out << "Loaded " << loaded.packages << " packages with " << loaded.dependencies
        << " dependencies from " << options.statusFile.string() << ".\n";
    if (queries.empty()) {
        queries = Choose(database);
    }
    answers = AnswerQueries(options, database, queries);
    out << "Answered " << queries.size() << (queries.size() == 1 ? " query" : " queries") << " on "
        << options.threads << (options.threads == 1 ? " worker.\n\n" : " workers.\n\n");
    PrintAnswers(out, queries, answers);
    return {run.ScopesTraced(), run.LogStart()};
}

void PrintReport(std::ostream& out, const Traced& traced, const LogReport& report) {
    out << "\nLog file       " << std::filesystem::absolute(traced.logStart.path).string()
        << "\nScopes traced  " << traced.scopes << "\nLines written  " << report.beginLines
        << " begin, " << report.endLines << " end, " << report.otherLines << " other\n"
        << "Activities     ";
    const char* separator = "";
    for (const auto& [name, count] : report.CountByName()) {
        out << separator << count << " " << name;
        separator = ", ";
    }
    out << '\n';
    const LoggedActivity* slowest = report.Slowest(activity::query);
    if (slowest != nullptr) {
        out << "\nThe slowest query, read back from the log: " << slowest->description
            << "  (request " << slowest->request << ", user " << slowest->user << ", site "
            << slowest->site << ", session " << slowest->session << ")\n\n";
        PrintTree(out, report, *slowest);
        out << "\nExclusive time leaves out the parts that ran on the same thread.\n";
    }
}

void RequireWholeLog(const Traced& traced, const LogReport& report) {
    const auto scopes = static_cast<std::size_t>(traced.scopes);
    if (report.beginLines != scopes || report.endLines != scopes ||
        report.activities.size() != scopes || report.unreadableLines != 0) {
        throw std::runtime_error(
            "the log is not whole: " + std::to_string(scopes) + " scopes were traced, but " +
            traced.logStart.path.string() + " holds " + std::to_string(report.beginLines) +
            " begin lines, " + std::to_string(report.endLines) + " end lines and " +
            std::to_string(report.unreadableLines) + " lines that cannot be read");
    }
}

}  // namespace

void RunBatchJob(const BatchOptions& options, std::ostream& out) {
    std::vector<Answer> answers;
    const Traced traced = RunTraced(options, out, answers);
    const LogReport report = ReadLog(traced.logStart, TSystem::ProcessID());
    PrintReport(out, traced, report);
    RequireWholeLog(traced, report);
    RequireAllAnswered(answers);
}

}  // namespace packagesearch
