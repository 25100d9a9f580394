#include "CommandLine.h"

#include "Queries.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace packagesearch {

namespace {

std::string QueryHelp() {
    std::ostringstream help;
    help << "Queries:\n";
    for (const QueryKind& kind : QueryKinds()) {
        std::string usage(kind.name);
        switch (kind.argument) {
            case ArgumentType::None:
                break;
            case ArgumentType::Name:
                usage += " NAME";
                break;
            case ArgumentType::Number:
                usage += " N";
                break;
            case ArgumentType::Words:
                usage += " WORDS";
                break;
        }
        usage.resize(std::max<std::size_t>(usage.size() + 1, 16), ' ');
        help << "  " << usage << kind.help << "\n";
    }
    help << "\nExit status: 0 success, 1 failure, 2 a command line that is not understood.";
    return help.str();
}

std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

CommandLine ParseCommandLine(int argumentCount, const char* const* arguments) {
    CLI::App app(
        "Loads the package database of a Debian system into an SQLite database, answers queries\n"
        "about it on a pool of threads, and traces all of it into a log file; shows the slowest\n"
        "query as the log tells it.",
        "package_search");
    Options options;
    app.add_option("--log", options.logFile, "Log file; lines are appended")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--status", options.statusFile, "Package database to load")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--queries",
                   options.queryFile,
                   "File with one query a line; without it the program chooses some")
        ->type_name("FILE");
    app.add_option("--threads", options.threads, "Worker threads, and clients that ask them")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, std::size_t{64}))
        ->capture_default_str();
    app.footer(QueryHelp());
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::CallForHelp&) {
        return {std::nullopt, app.help(), false};
    } catch (const CLI::ParseError& problem) {
        return {std::nullopt, OneLine(problem.what()) + " (--help shows what is understood)", true};
    }
    return {options, {}, false};
}

}  // namespace packagesearch
