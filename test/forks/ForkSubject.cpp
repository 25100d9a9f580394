// A process that forks again and again while another thread does one thing in a loop.
//
//     tarn_fork_subject                                    lists what there is to do, by name
//     tarn_fork_subject <name> sync|async <forks> <log>    status 0 if all children ended well
//     tarn_fork_subject first-use sync|async <n> <log>     forks once, n microseconds after another
//                                                          thread has begun with the first session
#include "ChildProcess.h"
#include "Operations.h"

#include "tarn/ActivityScope.h"
#include "tarn/TarnSettings.h"
#include "tarn/TracingSession.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Delivery.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// As in test/process/Subject.cpp: the child of a process with threads.
// NOLINTBEGIN(bugprone-reserved-identifier): named by the sanitizers
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "detect_leaks=0";
}

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0:report_thread_leaks=0";
}

// NOLINTEND(bugprone-reserved-identifier)

namespace {

using namespace std::chrono_literals;
using tarn::ActivityScope;

constexpr auto childsTime = 20s;

[[noreturn]] void LiveAsChild() {
    {
        const ActivityScope scope("child", {{"number", 1}});
        tarn::TarnSettings::GetInstance().SetOffs({"child's"});
        tarn::TarnSettings::GetInstance().AddEventAttributeMapping(u"child's", u"user");
        const ActivityScope off("child's");
        TLog::Logger::Get().LogMessage(TLog::Warn, u"a child's message");
    }
    const bool isFlushed = Metrics::Flush(childsTime / 2);
    Metrics::SetDelivery(Metrics::GetDelivery());
    TLog::ReplaceBackEnd(TLog::ReplaceBackEnd(nullptr));
    std::exit(isFlushed ? EXIT_SUCCESS : EXIT_FAILURE);
}

bool EndsWell(pid_t child) {
    const auto end = std::chrono::steady_clock::now() + childsTime;
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(child, &status, WNOHANG)) == 0) {
        if (std::chrono::steady_clock::now() >= end) {
            std::cerr << "a child hangs\n";
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(200us);
    }
    if (ended != child || !WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS) {
        std::cerr << "a child ended with status " << status << '\n';
        return false;
    }
    return true;
}

int ForkWhile(void (*run)(), int forks) {
    std::atomic<bool> isOver{false};
    std::thread other([&] {
        while (!isOver) {
            run();
        }
    });
    int failures = 0;
    for (int i = 0; i < forks && failures == 0; ++i) {
        // Not at the same moment of what the other thread does each time.
        std::this_thread::sleep_for(std::chrono::microseconds(37 * (i % 7)));
        const ActivityScope scope("parent");
        const pid_t child = tarn::test::Fork();
        if (child == 0) {
            LiveAsChild();
        }
        failures += child > 0 && EndsWell(child) ? 0 : 1;
    }
    isOver = true;
    other.join();
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// The first session and the first scope are made on another thread, at about the moment of the
/// fork.
int ForkAtFirstUse(int micros) {
    std::atomic<bool> begins{false};
    std::thread other([&] {
        begins = true;
        static_cast<void>(new tarn::TracingSession);
        const ActivityScope scope("first");
    });
    while (!begins) {
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(micros);
    while (std::chrono::steady_clock::now() < end) {
    }
    const pid_t child = tarn::test::Fork();
    if (child == 0) {
        const tarn::TracingSession session;
        LiveAsChild();
    }
    const bool isWell = child > 0 && EndsWell(child);
    other.join();
    return isWell ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int count, char** texts) {
    const auto& operations = ForkMatrix::Operations();
    if (count == 1) {
        for (const ForkMatrix::Operation& operation : operations) {
            std::cout << operation.name << ' ' << operation.others << '\n';
        }
        return EXIT_SUCCESS;
    }
    if (count != 5) {
        return EXIT_FAILURE;
    }
    const std::string name = texts[1];
    const bool isFirstUse = name == "first-use";
    const auto found =
        std::find_if(operations.begin(), operations.end(), [&name](const auto& operation) {
            return operation.name == name;
        });
    if (found == operations.end() && !isFirstUse) {
        std::cerr << "there is no operation " << name << '\n';
        return EXIT_FAILURE;
    }

    if (isFirstUse && std::string(texts[2]) == "sync") {
        return ForkAtFirstUse(std::stoi(texts[3]));  // the log, too, is used for the first time
    }
    TLog::ReplaceBackEnd(
        TLog::MakeJsonFileBackEnd(texts[4], {.maxBytes = 1'000'000, .maxFiles = 1000}));
    Metrics::DeliveryOptions delivery;
    delivery.mode = std::string(texts[2]) == "async" ? Metrics::DeliveryMode::Asynchronous
                                                     : Metrics::DeliveryMode::Synchronous;
    Metrics::SetDelivery(delivery);
    if (isFirstUse) {
        return ForkAtFirstUse(std::stoi(texts[3]));
    }
    static_cast<void>(new tarn::TracingSession);
    return ForkWhile(found->run, std::stoi(texts[3]));
}
