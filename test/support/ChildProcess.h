#pragma once

#include "Sanitizers.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

/// Children that a test forks. One that hangs is ended by its alarm, and has not ended well.
namespace tarn::test {

inline constexpr unsigned childTimeoutInSeconds = 30;

/// More blocks of each size than a thread keeps for itself: takes the lock of each size.
inline void AllocateEachSize() {
    constexpr std::size_t largest = 512 * 1024;
    constexpr std::size_t keptBytes = 128 * 1024;
    constexpr std::size_t keptBlocks = 256;
    std::vector<void*> blocks(keptBlocks + 1);
    for (std::size_t size = 8; size <= largest; size += std::max<std::size_t>(16, size / 16)) {
        const std::size_t count = std::min(keptBlocks, keptBytes / size) + 1;
        for (std::size_t i = 0; i < count; ++i) {
            blocks[i] = std::malloc(size);
        }
        for (std::size_t i = 0; i < count; ++i) {
            std::free(blocks[i]);
        }
    }
}

/// `fork`. Address sanitizer's allocator takes no part in one: a child that is forked while another
/// thread allocates may wait for ever for a lock of the sanitizer's own. Such a child ends, and
/// there is another.
inline pid_t Fork() {
    if constexpr (!hasAddressSanitizer) {
        return fork();
    }
    constexpr int mostTries = 20;
    for (int i = 1;; ++i) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return fork();
        }
        const pid_t child = fork();
        if (child == 0) {
            constexpr unsigned timeoutInSeconds = 3;
            alarm(timeoutInSeconds);
            AllocateEachSize();
            alarm(0);
            const char allocates = 'a';
            if (write(ends[1], &allocates, 1) != 1) {
                _exit(EXIT_FAILURE);
            }
            close(ends[0]);
            close(ends[1]);
            return 0;
        }
        close(ends[1]);
        char allocates = 0;
        ssize_t count = 0;
        while ((count = read(ends[0], &allocates, 1)) < 0 && errno == EINTR) {
        }
        close(ends[0]);
        if (child < 0 || count == 1 || i == mostTries) {
            return child;
        }
        waitpid(child, nullptr, 0);
    }
}

/// Runs `body` in a forked child, which ends with the exit code that `body` returns; true, and
/// nothing, are success. The child's id.
template <class Body>
pid_t StartChild(const Body& body, unsigned timeoutInSeconds = childTimeoutInSeconds) {
    const pid_t child = Fork();
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
