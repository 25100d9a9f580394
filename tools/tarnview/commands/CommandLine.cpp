#include "commands/CommandLine.h"

#include "commands/CommonOptions.h"
#include "commands/QuestionOptions.h"
#include "output/OutputFile.h"
#include "output/Units.h"
#include "read/InputFiles.h"
#include "read/LineParser.h"
#include "read/LineReader.h"

#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <sys/stat.h>
#include <system_error>

namespace tarnview {

namespace {

constexpr const char* description =
    R"(Shows what happened, from the logs of one or several processes. Full log files of the same set
(a.1.log, a.2.log ... of a.log) are read along.)";

constexpr const char* commandLineFooter = R"(From a log to an answer:
  tarnview top server.log                    where the time goes
  tarnview tree --slowest 1 server.log       what the slowest request did
  tarnview tree --failed --last 3 server.log what went wrong
  tarnview open --follow server.log          what is running now
  tarnview show 766D8930 server.log          all about one activity
  tarnview report -o report.html server.log  a page for a browser
  tarnview export --to chrome server.log -o trace.json
                                             a timeline for a trace viewer
  tarnview push http://localhost:4318 server.log
                                             spans for a collector
  tarnview load --to http://localhost:8123/logs server.log
                                             into an engine, for many machines
  tarnview check server.log                  whether the log can be trusted

'tarnview COMMAND --help' has the options of a command, and examples.

Exit status: 0 success, 1 'check' found the log not whole, 'show' not exactly one activity, or 'load' or 'push' had some
rejected, 2 a command line that is not understood, 3 a file that cannot be read or written or is no log. What is wrong with a log is named on
the standard error stream and does not change the exit status of the other commands.)";

// Who forgets the name of the output and gives that of a log instead means no harm to the log.
void RefuseToReplaceALog(const std::string& path) {
    struct stat status {};

    if (path.empty() || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    try {
        const InputFile file(path);
        LineReader reader(file.Descriptor());
        LineParser parser;
        LogLine line;
        if (reader.Next() == LineReader::Result::Line &&
            parser.Parse(reader.Text(), line) != LineParser::Result::Unreadable) {
            throw CommandLineError("--output: " + path + " is a log, and is not replaced");
        }
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::not_supported) {
            throw;
        }
        throw CommandLineError("--output: " + path + " may hold a log, and is not replaced");
    }
}

// The parser of the command line would only say that a command is missing.
bool IsUnknownCommand(const CLI::App& program, int argumentCount, char** arguments) {
    if (argumentCount < 2 || arguments[1][0] == '-') {
        return false;
    }
    std::string known;
    for (const CLI::App* const command : program.get_subcommands({})) {
        if (command->get_name() == arguments[1]) {
            return false;
        }
        known += (known.empty() ? "" : ", ") + command->get_name();
    }
    std::cerr << "tarnview: '" << arguments[1] << "' is no command; there are " << known
              << ". See tarnview --help.\n";
    return true;
}

int RunCommand(const CommonOptions& common, const Command& command) {
    try {
        RefuseToReplaceALog(common.output);
        OutputFile output(common.output);
        Context context{output.Stream(),
                        std::cerr,
                        FindTerminal(common.colour, common.hasProgress, !common.output.empty()),
                        common.output,
                        {common.times, 0}};
        const int status = command(context);
        if (status != exitInputOutput) {
            output.Commit();
        }
        return status;
    } catch (const CommandLineError& error) {
        std::cerr << "tarnview: " << OnOneLine(error.what()) << '\n';
        return exitCommandLine;
    } catch (const std::exception& error) {
        std::cerr << "tarnview: " << OnOneLine(error.what()) << '\n';
    }
    return exitInputOutput;
}

}  // namespace

int Run(int argumentCount, char** arguments) {
    // The reader of the output may close it before its end.
    std::signal(SIGPIPE, SIG_IGN);
    CommonOptions common;
    Command command;
    CLI::App program(description, "tarnview");
    program.require_subcommand(1);
    program.footer(commandLineFooter);
    program.set_version_flag("--version", TARNVIEW_VERSION);
    AddTop(program, common, command);
    AddTree(program, common, command);
    AddPath(program, common, command);
    AddCallers(program, common, command);
    AddFailures(program, common, command);
    AddCompare(program, common, command);
    AddHistogram(program, common, command);
    AddHeat(program, common, command);
    AddOpen(program, common, command);
    AddShow(program, common, command);
    AddCheck(program, common, command);
    AddReport(program, common, command);
    AddExport(program, common, command);
#ifdef TARNVIEW_HAS_NETWORK
    AddLoad(program, common, command);
    AddPush(program, common, command);
#endif
    if (IsUnknownCommand(program, argumentCount, arguments)) {
        return exitCommandLine;
    }
    try {
        program.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? exitSuccess : exitCommandLine;
    }
    return RunCommand(common, command);
}

}  // namespace tarnview
