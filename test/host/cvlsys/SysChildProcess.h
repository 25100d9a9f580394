#pragma once

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

/// What the tests of the host libraries have in common.
namespace HostTest {

/// Runs `body` in a forked child and says whether it returned true there. A child that hangs is
/// ended by its alarm and has failed.
template <class Body>
bool SucceedsInChild(const Body& body) {
    constexpr unsigned patienceInSeconds = 30;
    const pid_t child = fork();
    if (child == 0) {
        alarm(patienceInSeconds);
        _exit(body() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == EXIT_SUCCESS;
}

}  // namespace HostTest
