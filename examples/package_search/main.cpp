#include "CommandLine.h"
#include "Program.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>

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

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        const packagesearch::CommandLine commandLine =
            packagesearch::ParseCommandLine(argumentCount, arguments);
        if (commandLine.isError) {
            return Fail(usageError, commandLine.message);
        }
        if (!commandLine.options) {
            std::cout << commandLine.message;
            return success;
        }
        packagesearch::RunProgram(*commandLine.options, std::cout);
        return std::cout.flush() ? success : Fail(failure, "the output cannot be written");
    } catch (const std::exception& problem) {
        return Fail(failure, problem.what());
    }
}
