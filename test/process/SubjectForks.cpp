#include "ChildProcess.h"
#include "Subject.h"

#include "tarn/ActivityScope.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ProcessTest {

namespace {

using tarn::ActivityScope;

constexpr std::size_t childsThread = 8;

bool EndedWell(pid_t child) {
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

/// A child that works and ends as a process should. It leaves the parent's scopes to the parent.
/// One that hangs is ended by its alarm.
pid_t ForkChild(std::size_t rounds) {
    constexpr unsigned timeoutInSeconds = 120;
    const pid_t child = tarn::test::Fork();
    if (child == 0) {
        alarm(timeoutInSeconds);
        Work(childsThread, rounds);
        std::exit(EXIT_SUCCESS);
    }
    return child;
}

/// Threads that work until they are told to stop, with rests: reading their log must not take
/// minutes.
class Workers {
public:
    explicit Workers(std::size_t count) {
        for (std::size_t thread = 1; thread <= count; ++thread) {
            m_threads.emplace_back([this, thread] {
                while (!m_isOver) {
                    constexpr std::size_t rounds = 20;
                    Work(thread, rounds);
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                }
            });
        }
    }

    ~Workers() {
        m_isOver = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

private:
    std::atomic<bool> m_isOver{false};
    std::vector<std::thread> m_threads;
};

int ForkAndGoOn() {
    TraceForEver();
    const ActivityScope scope("open");
    Work(0, GetSubject().count);
    const pid_t child = ForkChild(GetSubject().count);
    Work(0, GetSubject().count);
    return EndedWell(child) ? 0 : 1;
}

// What the child's scopes are under is still queued, because the log is slow.
int ForkAtOnce() {
    TraceForEver();
    const ActivityScope scope("open");
    return EndedWell(ForkChild(GetSubject().count)) ? 0 : 1;
}

int ForkTwice() {
    TraceForEver();
    Work(0, GetSubject().count);
    const pid_t child = tarn::test::Fork();
    if (child == 0) {
        Work(childsThread, GetSubject().count);
        const pid_t grandchild = ForkChild(GetSubject().count);
        Work(childsThread, GetSubject().count);
        std::exit(EndedWell(grandchild) ? 0 : 1);
    }
    return EndedWell(child) ? 0 : 1;
}

int ForkWhileOthersWork() {
    constexpr std::size_t childsRounds = 5;
    TraceForEver();
    int failures = 0;
    {
        const Workers workers(3);
        for (std::size_t round = 0; round < GetSubject().count; ++round) {
            failures += EndedWell(ForkChild(childsRounds)) ? 0 : 1;
        }
    }
    return failures == 0 ? 0 : 1;
}

// The log is so slow that the other thread waits for room.
int ForkWithFullQueue() {
    constexpr std::size_t childsRounds = 20;
    TraceForEver();
    int failures = 0;
    {
        std::thread other([] { Work(1, GetSubject().count); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (int round = 0; round < 3; ++round) {
            Work(0, 3);
            failures += EndedWell(ForkChild(childsRounds)) ? 0 : 1;
        }
        other.join();
    }
    return failures == 0 ? 0 : 1;
}

int ForkWithStuckStream() {
    LogToStuckStream();
    TraceForEver();
    int failures = 0;
    {
        const Workers workers(2);
        for (std::size_t round = 0; round < GetSubject().count; ++round) {
            Work(0, 5);
            failures += EndedWell(ForkChild(5)) ? 0 : 1;
        }
    }
    return failures == 0 ? 0 : 1;
}

pid_t VforkAndExec() {
    char program[] = "/bin/true";
    char* const arguments[] = {program, nullptr};
    const pid_t child = vfork();
    if (child == 0) {
        execv(program, arguments);
        _exit(EXIT_FAILURE);
    }
    return child;
}

pid_t Spawn() {
    char program[] = "/bin/true";
    char* const arguments[] = {program, nullptr};
    pid_t child = -1;
    return posix_spawn(&child, program, nullptr, nullptr, arguments, environ) == 0 ? child : -1;
}

int StartPrograms() {
    TraceForEver();
    int failures = 0;
    {
        const Workers workers(2);
        for (std::size_t round = 0; round < GetSubject().count; ++round) {
            Work(0, 1);
            failures += EndedWell(VforkAndExec()) ? 0 : 1;
            Work(0, 1);
            failures += EndedWell(Spawn()) ? 0 : 1;
        }
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace

const std::map<std::string, Scenario>& ForkScenarios() {
    static const auto& scenarios =
        *new std::map<std::string, Scenario>{{"fork-and-go-on", ForkAndGoOn},
                                             {"fork-at-once", ForkAtOnce},
                                             {"fork-twice", ForkTwice},
                                             {"fork-while-others-work", ForkWhileOthersWork},
                                             {"fork-with-full-queue", ForkWithFullQueue},
                                             {"fork-with-stuck-stream", ForkWithStuckStream},
                                             {"start-programs", StartPrograms}};
    return scenarios;
}

}  // namespace ProcessTest
