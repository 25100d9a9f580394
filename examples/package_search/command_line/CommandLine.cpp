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
    return help.str();
}

std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

void AddFile(CLI::App& command,
             const std::string& name,
             std::filesystem::path& file,
             const std::string& help) {
    CLI::Option* const option = command.add_option(name, file, help)->type_name("FILE");
    if (!file.empty()) {
        option->capture_default_str();
    }
}

template <class Number>
void AddNumber(CLI::App& command,
               const std::string& name,
               Number& number,
               Number least,
               Number most,
               const std::string& help) {
    command.add_option(name, number, help)
        ->type_name("N")
        ->check(CLI::Range(least, most))
        ->capture_default_str();
}

void AddMilliseconds(CLI::App& command,
                     const std::string& name,
                     std::chrono::milliseconds& time,
                     const std::string& help) {
    constexpr std::int64_t anHour = 3'600'000;
    command
        .add_option_function<std::int64_t>(
            name, [&time](std::int64_t value) { time = std::chrono::milliseconds(value); }, help)
        ->type_name("N")
        ->check(CLI::Range(std::int64_t{1}, anHour))
        ->default_str(std::to_string(time.count()));
}

CLI::App& AddBatch(CLI::App& app, BatchOptions& options) {
    CLI::App& command = *app.add_subcommand(
        "batch", "Load, answer a list of queries on the workers, and say where the log is");
    AddFile(command, "--log", options.logFile, "Log file; lines are appended");
    AddFile(command, "--status", options.statusFile, "Package database to load");
    AddFile(command,
            "--queries",
            options.queryFile,
            "File with one query a line; without it the program chooses some");
    AddNumber<std::size_t>(
        command, "--threads", options.threads, 1, 64, "Worker threads, and clients that ask them");
    command.footer(QueryHelp());
    return command;
}

void AddServe(CLI::App& app, ServeOptions& options) {
    CLI::App& command =
        *app.add_subcommand("serve", "Load, and answer queries over HTTP until SIGTERM or SIGINT");
    AddFile(command, "--log", options.logFile, "Log file; lines are appended");
    AddFile(command, "--status", options.statusFile, "Package database to load");
    AddFile(command,
            "--database",
            options.databaseFile,
            "SQLite database to use, loaded first when it is not there; without it one in memory");
    AddNumber(command, "--port", options.http.port, 0, 65535, "Port on 127.0.0.1; 0: a free one");
    AddFile(command, "--port-file", options.portFile, "Gets the port once requests are served");
    command
        .add_option("--peer", options.peerUrl, "Another instance, asked for what needs a package")
        ->type_name("URL");
    command.add_option("--site", options.http.site, "Name of this instance in the log")
        ->type_name("NAME")
        ->capture_default_str();
    AddNumber<std::size_t>(command, "--workers", options.workers, 1, 64, "Threads that query");
    AddNumber<std::size_t>(
        command, "--clients", options.http.clients, 1, 256, "Requests that are served at once");
    AddMilliseconds(
        command, "--deadline-ms", options.http.deadline, "Time after which a request is canceled");
    AddMilliseconds(
        command, "--slow-ms", options.http.slowAfter, "Time after which a step is noted as slow");
    command.footer(
        "Paths, all with ?deadline-ms=N:\n"
        "  GET  /queries/KIND?argument=TEXT   one query, of the kinds that 'batch' knows\n"
        "  POST /queries                      one query a line\n"
        "  GET  /packages/NAME                a package, and from the peer what asks for it\n"
        "  GET  /health                       that it is there\n"
        "  GET  /metrics                      counters for Prometheus\n"
        "Headers X-User, X-Session and X-Request-Id say for whom a request is; the answer's\n"
        "X-Trace-Id is what 'tarnview tree --root' finds it by.");
}

}  // namespace

CommandLine ParseCommandLine(int argumentCount, const char* const* arguments) {
    CLI::App app(
        "Answers questions about the packages of a Debian system from an SQLite database, on a\n"
        "pool of threads, and traces all of it into a log file.",
        "package_search");
    BatchOptions batch;
    ServeOptions serve;
    const CLI::App& batchCommand = AddBatch(app, batch);
    AddServe(app, serve);
    app.require_subcommand(1);
    app.footer("Exit status: 0 success, 1 failure, 2 a command line that is not understood.");
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::CallForHelp&) {
        return Message{app.help(), false};
    } catch (const CLI::ParseError& problem) {
        return Message{OneLine(problem.what()) + " (--help shows what is understood)", true};
    }
    if (batchCommand.parsed()) {
        return batch;
    }
    return serve;
}

}  // namespace packagesearch
