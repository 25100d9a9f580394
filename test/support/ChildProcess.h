#pragma once

#include <cstdlib>
#include <sys/types.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

/// Children that a test forks. One that hangs is ended by its alarm, and has not ended well.
namespace tarn::test {

inline constexpr unsigned childTimeoutInSeconds = 30;

/// Runs `body` in a forked child, which ends with the exit code that `body` returns; true, and
/// nothing, are success. The child's id.
template <class Body>
pid_t StartChild(const Body& body, unsigned timeoutInSeconds = childTimeoutInSeconds) {
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    alarm(timeoutInSeconds);
    using Result = std::invoke_result_t<const Body&>;
    if constexpr (std::is_void_v<Result>) {
        body();
        _exit(EXIT_SUCCESS);
    } else if constexpr (std::is_same_v<Result, bool>) {
        _exit(body() ? EXIT_SUCCESS : EXIT_FAILURE);
    } else {
        _exit(body());
    }
}

/// Waits for the end of a child. Its exit code; -1 if a signal has ended it, or there is none.
inline int ExitCodeOf(pid_t child) {
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)
               ? WEXITSTATUS(status)
               : -1;
}

/// Runs `body` in a forked child and says whether it returned true there.
template <class Body>
bool SucceedsInChild(const Body& body) {
    return ExitCodeOf(StartChild(body)) == EXIT_SUCCESS;
}

}  // namespace tarn::test
