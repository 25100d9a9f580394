#include "Subject.h"

#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Delivery.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

// A process that forks while it has other threads leaves what those own behind in the child, where
// nobody reaches it; and it means to start threads in the child. Threads that run to the very end
// are what some scenarios are about, and crashes what others are. The sanitizers look these
// functions up by name. NOLINTBEGIN(bugprone-reserved-identifier): named by the sanitizers
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "detect_leaks=0:handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0";
}

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0:report_thread_leaks=0:report_signal_unsafe=0:"
           "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0";
}

// NOLINTEND(bugprone-reserved-identifier)

namespace ProcessTest {

namespace {

/// A log on a slow or broken device: each line takes `pause`, and after `linesUntilHang` lines
/// nothing moves any more.
class TroubledLog : public TLog::LogBackEnd {
public:
    TroubledLog(std::shared_ptr<TLog::LogBackEnd> log,
                std::chrono::microseconds pause,
                std::size_t linesUntilHang)
        : m_log(std::move(log)),
          m_pause(pause),
          m_linesLeft(linesUntilHang) {}

    void Write(TLog::Severity severity, const TLog::Event& event) override {
        Pass();
        m_log->Write(severity, event);
    }

    void WriteMessage(TLog::Severity severity, const TString& text) override {
        Pass();
        m_log->WriteMessage(severity, text);
    }

    void Flush() override {
        const std::lock_guard lock(m_mutex);
        m_log->Flush();
    }

private:
    void Pass() {
        const std::lock_guard lock(m_mutex);
        if (m_linesLeft == 0) {
            GetSubject().isLogStuck = true;
            GetSubject().isLogStuck.notify_all();
            for (;;) {
                pause();
            }
        }
        --m_linesLeft;
        std::this_thread::sleep_for(m_pause);
    }

    const std::shared_ptr<TLog::LogBackEnd> m_log;
    const std::chrono::microseconds m_pause;
    std::mutex m_mutex;
    std::size_t m_linesLeft;
};

struct Arguments {
    std::string scenario;
    std::string path;
    std::string delivery;
    std::size_t count = 0;
    long pauseMicros = 0;
    long linesUntilHang = -1;
    long exitDeadlineMillis = 60'000;
    std::size_t limitBytes = 0;
};

Arguments Parse(int count, char** texts) {
    constexpr int expected = 9;
    if (count != expected) {
        throw std::invalid_argument(
            "usage: tarn_process_subject <scenario> <log> sync|async <count> <pause per line, us> "
            "<lines until the log hangs, -1: never> <exit deadline, ms, -1: as it is> "
            "<limit of a file, bytes>");
    }
    Arguments arguments;
    int next = 0;
    arguments.scenario = texts[++next];
    arguments.path = texts[++next];
    arguments.delivery = texts[++next];
    arguments.count = std::stoul(texts[++next]);
    arguments.pauseMicros = std::stol(texts[++next]);
    arguments.linesUntilHang = std::stol(texts[++next]);
    arguments.exitDeadlineMillis = std::stol(texts[++next]);
    arguments.limitBytes = std::stoul(texts[++next]);
    return arguments;
}

void SetUp(const Arguments& arguments) {
    TLog::LogFileLimits limits;
    limits.maxBytes = arguments.limitBytes;
    limits.maxFiles = 100'000;
    std::shared_ptr<TLog::LogBackEnd> log = TLog::MakeJsonFileBackEnd(arguments.path, limits);
    if (arguments.pauseMicros != 0 || arguments.linesUntilHang >= 0) {
        log = std::make_shared<TroubledLog>(std::move(log),
                                            std::chrono::microseconds(arguments.pauseMicros),
                                            static_cast<std::size_t>(arguments.linesUntilHang));
    }
    GetSubject().logByDefault = TLog::ReplaceBackEnd(std::move(log));

    Metrics::DeliveryOptions delivery;
    delivery.mode = arguments.delivery == "async" ? Metrics::DeliveryMode::Asynchronous
                                                  : Metrics::DeliveryMode::Synchronous;
    delivery.queueBytes = std::size_t{16} << 10;
    if (arguments.exitDeadlineMillis >= 0) {
        delivery.exitDeadline = std::chrono::milliseconds(arguments.exitDeadlineMillis);
    }
    Metrics::SetDelivery(delivery);

    GetSubject().progress = new Progress(arguments.path + ".progress");
    GetSubject().hostsFile = arguments.path + ".host";
    GetSubject().count = arguments.count;
}

}  // namespace

Subject& GetSubject() {
    static Subject& subject = *new Subject;
    return subject;
}

void Work(std::size_t thread, std::size_t rounds) {
    for (std::size_t n = 0; n < rounds; ++n) {
        {
            const tarn::ActivityScope outer(
                "work", {{"thread", static_cast<uint64>(thread)}, {"n", static_cast<uint64>(n)}});
            const tarn::ActivityScope inner("part");
        }
        GetSubject().progress->Count(thread);
    }
}

void TraceForEver() {
    static_cast<void>(new tarn::TracingSession);
}

void LogToStuckStream() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
        throw std::runtime_error("there is no pipe");
    }
    TLog::ReplaceBackEnd(TLog::MakeJsonStdoutBackEnd());
    const std::string text(10'000, 'x');
    while (TLog::GetLogStatistics().writeErrors == 0) {
        TLog::Logger::Get().LogMessage(TLog::Error, TString(text));
    }
}

}  // namespace ProcessTest

int main(int count, char** texts) {
    using namespace ProcessTest;
    try {
        const Arguments arguments = Parse(count, texts);
        SetUp(arguments);
        for (const auto* scenarios :
             {&ExitScenarios(), &ForkScenarios(), &LastThreadScenarios(), &CrashScenarios()}) {
            const auto found = scenarios->find(arguments.scenario);
            if (found != scenarios->end()) {
                return found->second();
            }
        }
        std::cerr << "there is no scenario " << arguments.scenario << '\n';
    } catch (const std::invalid_argument& error) {
        std::cerr << error.what() << '\n';
    }
    return EXIT_FAILURE;
}
