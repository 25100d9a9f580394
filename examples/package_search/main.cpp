#include "BatchJob.h"
#include "CommandLine.h"
#include "ServeCommand.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <variant>

namespace {

constexpr int success = 0;
constexpr int failure = 1;
constexpr int usageError = 2;

int Fail(int exitStatus, std::string problem) {
    std::replace(problem.begin(), problem.end(), '\n', ' ');
    std::cout.flush();
    std::cerr << "package_search: " << problem << std::endl;
    return exitStatus;
}

void Run(const packagesearch::CommandLine& commandLine) {
    if (const auto* batch = std::get_if<packagesearch::BatchOptions>(&commandLine)) {
        packagesearch::RunBatchJob(*batch, std::cout);
    } else if (const auto* serve = std::get_if<packagesearch::ServeOptions>(&commandLine)) {
        packagesearch::RunService(*serve, std::cout);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        const packagesearch::CommandLine commandLine =
            packagesearch::ParseCommandLine(argumentCount, arguments);
        if (const auto* message = std::get_if<packagesearch::Message>(&commandLine)) {
            if (message->isError) {
                return Fail(usageError, message->text);
            }
            std::cout << message->text;
            return success;
        }
        Run(commandLine);
        return std::cout.flush() ? success : Fail(failure, "the output cannot be written");
    } catch (const std::exception& problem) {
        return Fail(failure, problem.what());
    }
}
