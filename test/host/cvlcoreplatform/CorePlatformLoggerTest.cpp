#include "AllocationCounter.h"
#include "ChildProcess.h"
#include "CorePlatformTestSupport.h"

#include "cvlcoreplatform/TUUID.h"
#include "cvlcoreplatform/host/JsonLines.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <pthread.h>
#include <spdlog/sinks/base_sink.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using namespace TLog;
using LogTest::LinesIn;
using tarn::test::CapturingLog;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Does what the test wants with every message.
class ScriptedBackEnd : public LogBackEnd {
public:
    explicit ScriptedBackEnd(std::function<void(const std::string&)> script)
        : m_script(std::move(script)) {}

    void Write(Severity, const Event& event) override { m_script(event.GetName().ToUtf8()); }

    void WriteMessage(Severity, const TString& text) override { m_script(text.ToUtf8()); }

    void Flush() override { m_script("<flush>"); }

private:
    std::function<void(const std::string&)> m_script;
};

class CorePlatformLoggerTest : public LogTest::LoggerTest {
protected:
    std::shared_ptr<CapturingLog> Record() {
        auto backEnd = std::make_shared<CapturingLog>();
        ReplaceBackEnd(backEnd);
        return backEnd;
    }

    static void Script(std::function<void(const std::string&)> script) {
        ReplaceBackEnd(std::make_shared<ScriptedBackEnd>(std::move(script)));
    }
};

TEST_F(CorePlatformLoggerTest, WithoutSetUpInformationGoesToTheStandardErrorStreamAsJsonLines) {
    ReplaceBackEnd(BackEndBefore());
    testing::internal::CaptureStderr();

    Logger::Get().LogMessage(Debug, TString(u"too little"));
    Logger::Get().LogMessage(Info, TString(u"hello"));
    Logger::Get().Log(Error, Event(u"broken", Object::Make({{u"code", Literal::Int(7)}})));

    const auto lines = LinesIn(testing::internal::GetCapturedStderr());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(nlohmann::json::parse(lines[0])["message"], "hello");
    EXPECT_EQ(nlohmann::json::parse(lines[1])["event"], "broken");
    EXPECT_EQ(nlohmann::json::parse(lines[1])["body"]["code"], 7);
}

TEST_F(CorePlatformLoggerTest, TheBackEndSeesEventsAndMessagesWithTheirSeverity) {
    const auto backEnd = Record();

    Logger::Get().Log(Info, Event(u"e", nullptr));
    Logger::Get().LogMessage(Fatal, TString(u"m"));

    ASSERT_EQ(backEnd->Events().size(), 1U);
    EXPECT_EQ(backEnd->Events()[0].first, Info);
    EXPECT_EQ(backEnd->Events()[0].second.GetName(), TString(u"e"));
    EXPECT_THAT(backEnd->Messages(), ElementsAre(Pair(Fatal, "m")));
}

TEST_F(CorePlatformLoggerTest, WhatIsLessSevereThanTheThresholdIsDropped) {
    const auto backEnd = Record();

    for (const Severity threshold : {Trace, Warn, Fatal}) {
        SetThreshold(threshold);
        EXPECT_EQ(GetThreshold(), threshold);
        for (const Severity severity : {Trace, Debug, Info, Warn, Error, Fatal}) {
            EXPECT_EQ(Logger::Get().IsEnabled(severity), severity >= threshold);
            Logger::Get().LogMessage(severity, TString(u"m"));
            Logger::Get().Log(severity, Event(u"e", nullptr));
        }
    }

    EXPECT_EQ(backEnd->Messages().size(), 6U + 3 + 1);
    EXPECT_EQ(backEnd->Events().size(), 6U + 3 + 1);
}

TEST_F(CorePlatformLoggerTest, AThresholdBeyondTheSeveritiesIsTheNearestOfThem) {
    SetThreshold(static_cast<Severity>(99));
    EXPECT_EQ(GetThreshold(), Fatal);

    SetThreshold(static_cast<Severity>(-1));
    EXPECT_EQ(GetThreshold(), Trace);
}

TEST_F(CorePlatformLoggerTest, WithoutABackEndNothingIsEnabledAndTheThresholdIsKept) {
    Record();
    SetThreshold(Debug);

    ReplaceBackEnd(nullptr);
    EXPECT_FALSE(Logger::Get().IsEnabled(Fatal));
    EXPECT_EQ(GetThreshold(), Debug);
    Logger::Get().LogMessage(Fatal, TString(u"nobody hears this"));
    SetThreshold(Warn);
    EXPECT_FALSE(Logger::Get().IsEnabled(Fatal));

    const auto backEnd = Record();
    EXPECT_TRUE(Logger::Get().IsEnabled(Warn));
    EXPECT_FALSE(Logger::Get().IsEnabled(Info));
    EXPECT_THAT(backEnd->Messages(), IsEmpty());
    EXPECT_THAT(backEnd->Events(), IsEmpty());
}

TEST_F(CorePlatformLoggerTest, ASeverityForNonErrorsStandsForItsSeverity) {
    const auto backEnd = Record();

    Logger::Get().LogMessage(NonErrorSeverity(Warn), TString(u"m"));

    EXPECT_THAT(backEnd->Messages(), ElementsAre(Pair(Warn, "m")));
}

TEST_F(CorePlatformLoggerTest, ReplacingReturnsTheFormerBackEnd) {
    const auto first = Record();
    const auto second = std::make_shared<CapturingLog>();

    EXPECT_EQ(ReplaceBackEnd(second), first);
    EXPECT_EQ(ReplaceBackEnd(nullptr), second);
    EXPECT_EQ(ReplaceBackEnd(nullptr), nullptr);
}

TEST_F(CorePlatformLoggerTest, AnExceptionOfTheBackEndIsCountedAndTheNextMessageGoesOn) {
    std::vector<std::string> seen;
    Script([&](const std::string& text) {
        if (text == "bad") {
            throw std::runtime_error("cannot");
        }
        if (text == "worse") {
            throw 42;
        }
        seen.push_back(text);
    });

    LogMessage("bad");
    LogMessage("worse");
    Logger::Get().Log(Info, Event(u"bad", nullptr));
    LogMessage("good");

    EXPECT_EQ(Increase(&LogStatistics::backEndExceptions), 3u);
    EXPECT_THAT(seen, ElementsAre("good"));
}

TEST_F(CorePlatformLoggerTest, WhatABackEndLogsItselfIsDroppedAndCounted) {
    std::vector<std::string> seen;
    Script([&](const std::string& text) {
        seen.push_back(text);
        LogMessage("echo of " + text);
        FlushLog();
    });

    LogMessage("one");
    LogMessage("two");

    EXPECT_THAT(seen, ElementsAre("one", "two"));
    EXPECT_EQ(Increase(&LogStatistics::nestedCalls), 4u);
}

TEST_F(CorePlatformLoggerTest, ABackEndMayReadAndSetTheThresholdButNotReplaceItself) {
    bool refused = false;
    Script([&](const std::string&) {
        SetThreshold(static_cast<Severity>(GetThreshold() + 1));
        try {
            ReplaceBackEnd(nullptr);
        } catch (const std::logic_error&) {
            refused = true;
        }
    });

    LogMessage("m");

    EXPECT_TRUE(refused);
    EXPECT_EQ(GetThreshold(), Warn);
    EXPECT_EQ(Increase(&LogStatistics::backEndExceptions), 0u);
}

TEST_F(CorePlatformLoggerTest, FlushingReachesTheBackEndAndItsExceptionsAreCounted) {
    std::vector<std::string> seen;
    Script([&](const std::string& text) {
        seen.push_back(text);
        throw std::runtime_error("cannot");
    });

    FlushLog();

    EXPECT_THAT(seen, ElementsAre("<flush>"));
    EXPECT_EQ(Increase(&LogStatistics::backEndExceptions), 1u);
    ReplaceBackEnd(nullptr);
    FlushLog();
    Record();
    FlushLog();
}

TEST_F(CorePlatformLoggerTest, TheCallersErrnoIsKept) {
    Script([](const std::string&) { errno = ENOSPC; });
    errno = EAGAIN;

    LogMessage("m");

    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(CorePlatformLoggerTest, ReplacingWaitsUntilNobodyIsInsideTheFormerBackEnd) {
    std::promise<void> entered;
    std::promise<void> leave;
    Script([&](const std::string&) {
        entered.set_value();
        leave.get_future().wait();
    });
    auto logging = std::async(std::launch::async, [] { LogMessage("slow"); });
    entered.get_future().wait();

    auto replacing = std::async(std::launch::async, [] { ReplaceBackEnd(nullptr); });
    EXPECT_EQ(replacing.wait_for(50ms), std::future_status::timeout);
    leave.set_value();

    EXPECT_EQ(replacing.wait_for(20s), std::future_status::ready);
    logging.wait();
}

TEST_F(CorePlatformLoggerTest, NothingIsLostOrComesTooLateWhileBackEndsAreReplaced) {
    struct BackEnd : LogBackEnd {
        explicit BackEnd(std::atomic<int>& sum) : m_received(sum) {}

        ~BackEnd() override { m_alive = false; }

        void Write(Severity, const Event&) override {}

        void WriteMessage(Severity, const TString&) override {
            m_received += m_alive ? 1 : 1000000;
        }

    private:
        std::atomic<int>& m_received;
        bool m_alive = true;
    };

    constexpr int loggers = 4;
    constexpr int each = 2000;
    std::atomic<int> received{0};
    std::atomic<int> left{loggers};
    ReplaceBackEnd(std::make_shared<BackEnd>(received));

    std::vector<std::thread> threads;
    for (int i = 0; i < loggers; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < each; ++n) {
                LogMessage("m");
            }
            --left;
        });
    }
    while (left != 0) {
        ReplaceBackEnd(std::make_shared<BackEnd>(received));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(received, loggers * each);
}

TEST_F(CorePlatformLoggerTest, AThreadThatIsCancelledWhileItLogsFinishesTheLineFirst) {
    std::atomic<bool> entered{false};
    std::atomic<bool> finished{false};
    Script([&](const std::string&) {
        entered = true;
        // A point where a cancelled thread ends, unless it is kept from it.
        sleep(1);
        finished = true;
    });
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread,
                  nullptr,
                  [](void*) -> void* {
                      LogMessage("m");
                      pthread_testcancel();
                      return nullptr;
                  },
                  nullptr),
              0);
    while (!entered) {
        std::this_thread::yield();
    }

    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);

    EXPECT_TRUE(finished);
    EXPECT_EQ(result, PTHREAD_CANCELED);
}

TEST_F(CorePlatformLoggerTest, AChildThatIsForkedWhileOthersLogCanLog) {
    // The back end holds a lock of its own, as any sink does.
    std::mutex sinkLock;
    Script([&](const std::string&) { const std::lock_guard lock(sinkLock); });
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!done) {
                LogMessage("m");
            }
        });
    }

    int succeeded = 0;
    constexpr int forks = 30;
    for (int i = 0; i < forks; ++i) {
        succeeded += tarn::test::SucceedsInChild([] {
            LogMessage("child");
            return true;
        });
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(succeeded, forks);
}

TEST_F(CorePlatformLoggerTest, AForkFromInsideTheBackEndDoesNotBlock) {
    bool succeeded = false;
    Script(
        [&](const std::string&) { succeeded = tarn::test::SucceedsInChild([] { return true; }); });

    LogMessage("m");
    EXPECT_TRUE(succeeded);

    succeeded = false;
    LogMessage("again");
    EXPECT_TRUE(succeeded) << "the first fork left something locked";
}

// Logs and makes an id when it is destroyed.
struct LogsAtItsEnd {
    explicit LogsAtItsEnd(const char* text) : m_text(text) {}

    ~LogsAtItsEnd() {
        Logger::Get().LogMessage(Warn, TString(m_text));
        Logger::Get().Log(Warn,
                          Event(TString(m_text) + TString(u"-event"),
                                nullptr,
                                ActivityInfoFactory::CreateActivityInfo(0, u"-")));
        static_cast<void>(TUUID::CreateUUID());
    }

    const char* m_text;
};

[[noreturn]] void EndWithLateLogging(const std::function<void()>& before) {
    static const LogsAtItsEnd early("static made before");
    before();
    thread_local const LogsAtItsEnd local("thread-local");
    static_cast<void>(local);
    // Makes what the logger keeps for the thread and for the process.
    Logger::Get().LogMessage(Warn, TString(u"first"));
    static const LogsAtItsEnd late("static made after");
    std::atexit([] { Logger::Get().LogMessage(Warn, TString(u"at exit")); });
    std::exit(3);
}

using CorePlatformLoggerDeathTest = CorePlatformLoggerTest;

TEST_F(CorePlatformLoggerDeathTest, StaticDestructorsAndExitHandlersMayLog) {
    const auto everything =
        testing::AllOf(testing::HasSubstr("\"message\":\"first\""),
                       testing::HasSubstr("\"message\":\"thread-local\""),
                       testing::HasSubstr("\"event\":\"thread-local-event\""),
                       testing::HasSubstr("\"message\":\"at exit\""),
                       testing::HasSubstr("\"message\":\"static made after\""),
                       testing::HasSubstr("\"event\":\"static made after-event\""),
                       testing::HasSubstr("\"message\":\"static made before\""),
                       testing::HasSubstr("\"event\":\"static made before-event\""));

    EXPECT_EXIT(EndWithLateLogging([this] { ReplaceBackEnd(BackEndBefore()); }),
                testing::ExitedWithCode(3),
                everything);
}

// Keeps what it is given without an allocation of its own.
class FrugalSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    FrugalSink() { text.reserve(1'000'000); }

    std::string text;

private:
    void sink_it_(const spdlog::details::log_msg& msg) override {
        text.append(msg.payload.data(), msg.payload.size()).push_back('\n');
    }

    void flush_() override {}
};

TEST_F(CorePlatformLoggerTest, AnyAllocationOfALineMayFail) {
    const auto sink = std::make_shared<FrugalSink>();
    ReplaceBackEnd(MakeJsonBackEnd(sink, "sink"));
    const Event event(
        u"e",
        Object::Make({{u"a", Object::Make({{u"b", Literal::String(u"gr\u00FC\u00DFe")}})},
                      {u"c", Literal::String(TString(std::u16string(3000, u'x')))}}),
        ActivityInfoFactory::CreateActivityInfo(0, u"-"));
    const auto failsOnANewThread = [&](uint64 failing) {
        bool failed = false;
        // A new thread has no buffers yet.
        std::thread([&] {
            const tarn::test::FailingAllocation failure(failing);
            Logger::Get().Log(Info, event);
            failed = failure.HasFailed();
        }).join();
        return failed;
    };

    uint64 failures = 0;
    while (failsOnANewThread(failures)) {
        ++failures;
    }

    EXPECT_GT(failures, 4u);
    EXPECT_EQ(Increase(&LogStatistics::backEndExceptions), failures);
    const auto lines = LinesIn(sink->text);
    ASSERT_EQ(lines.size(), 1u) << "only the last time could succeed";
    EXPECT_EQ(nlohmann::json::parse(lines[0])["body"]["a"]["b"],
              "gr\xC3\xBC\xC3\x9F"
              "e");
}

TEST_F(CorePlatformLoggerTest, AnOrdinaryLineAllocatesNothing) {
    LogTest::TemporaryFolder folder;
    ReplaceBackEnd(MakeJsonFileBackEnd(folder.PathOf("a.log")));
    const Event event(u"e",
                      Object::Make({{u"b", Literal::String(u"gr\u00FC\u00DFe")},
                                    {u"a", Array::Make({Literal::Double(0.5, 1)})}}),
                      ActivityInfoFactory::CreateActivityInfo(0, u"-"));
    Logger::Get().Log(Info, event);

    const tarn::test::AllocationCounter counter;
    Logger::Get().Log(Info, event);
    const uint64 allocations = counter.Allocations();

    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(LinesIn(LogTest::ContentOf(folder.PathOf("a.log"))).size(), 2u);
}

TEST_F(CorePlatformLoggerTest, AThreadMayLogWhileItIsTornDown) {
    LogTest::TemporaryFolder folder;
    ReplaceBackEnd(MakeJsonFileBackEnd(folder.PathOf("a.log")));

    std::thread([] {
        thread_local const LogsAtItsEnd last("late");
        static_cast<void>(last);
        LogMessage("early");
    }).join();

    const auto lines = LinesIn(LogTest::ContentOf(folder.PathOf("a.log")));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(nlohmann::json::parse(lines[0])["message"], "early");
    EXPECT_EQ(nlohmann::json::parse(lines[1])["message"], "late");
    EXPECT_EQ(nlohmann::json::parse(lines[2])["event"], "late-event");
}

}  // namespace
