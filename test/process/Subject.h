#pragma once

#include "Progress.h"

#include "cvlcoreplatform/host/LogBackEnd.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>

/// The program that the tests of processes start: it logs as an application would, and ends in the
/// way that its scenario tells.
namespace ProcessTest {

/// What a scenario may use. Lives as long as the process.
struct Subject {
    Progress* progress = nullptr;
    std::string hostsFile;  ///< the path of a file of the host's own
    std::size_t count = 0;  ///< the scenario's number, whatever it counts
    std::atomic<bool> isLogStuck{false};
    std::shared_ptr<TLog::LogBackEnd> logByDefault;  ///< where lines go without any set-up
};

Subject& GetSubject();

/// Scopes that hold another one each, so two for each round. Numbered by `thread` and `n`.
void Work(std::size_t thread, std::size_t rounds);

/// Begins tracing, never to end it: the session outlives all static objects.
void TraceForEver();

/// Connects standard output with a pipe that blocks and has no place left, and logs there.
void LogToStuckStream();

using Scenario = std::function<int()>;

/// Each has its name from the way in which the process ends.
const std::map<std::string, Scenario>& ExitScenarios();
const std::map<std::string, Scenario>& ForkScenarios();
const std::map<std::string, Scenario>& LastThreadScenarios();
const std::map<std::string, Scenario>& CrashScenarios();

}  // namespace ProcessTest
