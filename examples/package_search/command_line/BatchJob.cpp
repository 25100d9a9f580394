#include "BatchJob.h"

#include "ActivityNames.h"
#include "PackageDatabase.h"
#include "Queries.h"
#include "QueryService.h"
#include "RequestContext.h"
#include "TracedRun.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
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
    std::uint64_t linesLost = 0;
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
    return {run.ScopesTraced(), run.LinesLost()};
}

void PrintSummary(std::ostream& out, const BatchOptions& options, const Traced& traced) {
    const std::string log = std::filesystem::absolute(options.logFile).string();
    out << "\nLog file       " << log << "\nScopes traced  " << traced.scopes
        << "\nSlowest query  tarnview tree --slowest 1 --name " << activity::query << ' ' << log
        << '\n';
}

void RequireWholeLog(const BatchOptions& options, const Traced& traced) {
    if (traced.linesLost != 0) {
        throw std::runtime_error("the log is not whole: " + std::to_string(traced.linesLost) +
                                 " lines could not be written to " + options.logFile.string());
    }
}

}  // namespace

void RunBatchJob(const BatchOptions& options, std::ostream& out) {
    std::vector<Answer> answers;
    const Traced traced = RunTraced(options, out, answers);
    PrintSummary(out, options, traced);
    RequireWholeLog(options, traced);
    RequireAllAnswered(answers);
}

}  // namespace packagesearch
