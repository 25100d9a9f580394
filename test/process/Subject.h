#pragma once

#include "Progress.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <string>

/// The program that the tests of processes start: it logs as an application would, and ends in the
/// way that its scenario tells.
namespace ProcessTest {

/// What a scenario may use. Lives as long as the process.
struct Subject {
    Progress* progress = nullptr;
    std::size_t count = 0;  ///< the scenario's number, whatever it counts
    std::atomic<bool> isLogStuck{false};
};

Subject& GetSubject();

/// Scopes that hold another one each, so two for each round. Numbered by `thread` and `n`.
void Work(std::size_t thread, std::size_t rounds);

/// Begins tracing, never to end it: the session outlives all static objects.
void TraceForEver();

using Scenario = std::function<int()>;

/// Each has its name from the way in which the process ends.
const std::map<std::string, Scenario>& ExitScenarios();
const std::map<std::string, Scenario>& ForkScenarios();
const std::map<std::string, Scenario>& LastThreadScenarios();
const std::map<std::string, Scenario>& CrashScenarios();

}  // namespace ProcessTest
