#include "CapturingSink.h"
#include "ChildProcess.h"
#include "Matchers.h"
#include "Sanitizers.h"
#include "ScopeTree.h"
#include "TarnTest.h"
#include "TemporaryFolder.h"
#include "Threads.h"

#include "tarn/Headers.h"
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/SaveOnCrash.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using namespace std::chrono_literals;

class SessionKeepTest : public TarnTest {
protected:
    SessionKeepTest() { unsetenv("TARN_KEEP"); }

    ~SessionKeepTest() override {
        unsetenv("TARN_KEEP");
        Metrics::SetDelivery(m_delivery);
    }

    SessionOptions Capturing() {
        SessionOptions options;
        options.sink = std::make_shared<CapturingSink>(m_events);
        return options;
    }

    SessionOptions KeepingFailed() {
        SessionOptions options = Capturing();
        options.keep.failed = true;
        return options;
    }

    const CapturedEvents& Events() const { return *m_events; }

    /// The sum of an integer of all reports.
    int64 Reported(const char* field) {
        int64 sum = 0;
        for (const auto& [severity, event] : Log().Events()) {
            if (event.GetName() == TString("tarn-left-out")) {
                const auto found = event.GetBody()->GetFields().find(TString(field));
                sum += found == event.GetBody()->GetFields().end()
                           ? 0
                           : static_cast<const TLog::Literal&>(*found->second).GetInt();
            }
        }
        return sum;
    }

    const TemporaryFolder& Folder() const { return m_folder; }

    static void Serve(const char* name, bool fails) {
        Scope scope(name);
        const Scope step("step");
        if (fails) {
            scope.Fail("no luck");
        }
    }

private:
    TemporaryFolder m_folder;
    Metrics::DeliveryOptions m_delivery = Metrics::GetDelivery();
    std::shared_ptr<CapturedEvents> m_events = std::make_shared<CapturedEvents>();
};

TEST_F(SessionKeepTest, OnlyTreesThatAConditionHoldsForAreWritten) {
    {
        const Session session(KeepingFailed());
        Serve("good", false);
        Serve("bad", true);
    }

    EXPECT_EQ(DrawScopeTree(Events()),
              "bad: no luck\n"
              "  step\n");
    EXPECT_EQ(Reported("trees"), 1);
    EXPECT_EQ(Reported("lines"), 4);
}

TEST_F(SessionKeepTest, TheEnvironmentChoosesTheRules) {
    setenv("TARN_KEEP", "name=good", 1);
    {
        const Session session(KeepingFailed());
        Serve("good", false);
        Serve("bad", true);
    }

    EXPECT_EQ(DrawScopeTree(Events()),
              "good\n"
              "  step\n");
}

TEST_F(SessionKeepTest, AWrongValueIsToldOnceAndIgnored) {
    setenv("TARN_KEEP", "quick", 1);
    {
        const Session session(Capturing());
        Serve("good", false);
    }

    EXPECT_EQ(Events().size(), 4U);
    EXPECT_THAT(
        Log().MessageTexts(),
        testing::Contains(HasSubstr("TARN_KEEP \"quick\" is ignored; it should be all, or")));
}

TEST_F(SessionKeepTest, TheConfigurationFileChangesTheRulesWhileTheProgramRuns) {
    const std::string path = Folder().PathOf("tarn.conf");
    std::ofstream(path) << "keep = failed\n";
    SessionOptions options = Capturing();
    options.config = path;
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    {
        const Session session(options);
        const Scope open("open");
        Metrics::Flush(1s);
        EXPECT_EQ(Events().size(), 0U);
        std::ofstream(path) << "keep = all\n";
        // The change writes what waits, with the delivering role.
        std::size_t written = 0;
        while (written == 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(5ms);
            Metrics::CallBetweenDeliveries(1s, [&] { written = Events().size(); });
        }
        EXPECT_EQ(written, 1U);
        Serve("good", false);
    }

    EXPECT_EQ(Events().size(), 6U);
    EXPECT_EQ(Reported("lines"), 0);
}

TEST_F(SessionKeepTest, WhatWaitsWhenTheSessionEndsIsWritten) {
    auto scope = std::make_unique<Activity>("never ended");
    { const Session session(KeepingFailed()); }
    scope.reset();
    auto session = std::make_unique<Session>(KeepingFailed());
    Activity open("open");
    session.reset();

    EXPECT_EQ(DrawScopeTree(Events()), "open (open)\n");
    EXPECT_EQ(Reported("unjudged"), 1);
}

TEST_F(SessionKeepTest, AnotherSinkGetsTheWholeTreeThatWaits) {
    const auto others = std::make_shared<CapturedEvents>();
    {
        const Session session(KeepingFailed());
        Scope scope("bad");
        session.SetSink(std::make_shared<CapturingSink>(others));
        scope.Fail("no luck");
    }

    EXPECT_EQ(Events().size(), 0U);
    EXPECT_THAT(*others, ElementsAre(Begins("bad"), Ends("bad")));
}

TEST_F(SessionKeepTest, ASampledRequestIsKeptAndSaysSo) {
    const std::map<std::string, std::string> sampled = {
        {"traceparent", "00-0af7651916cd43dd8448eb211c80319c-b7ad6b7169203331-01"}};
    const std::map<std::string, std::string> notSampled = {
        {"traceparent", "00-1af7651916cd43dd8448eb211c80319c-b7ad6b7169203331-00"}};
    SessionOptions options = Capturing();
    options.keep.sampled = true;
    {
        const Session session(options);
        { const Scope serve(Extract(sampled), "sampled"); }
        { const Scope serve(Extract(notSampled), "not sampled"); }
        { const Activity serve(Extract(sampled), "activity"); }
        Serve("own", false);
    }

    EXPECT_EQ(DrawScopeTree(Events()), "[1] sampled\n[1] activity\n");
    EXPECT_THAT(Events().front(), HasBodyField("sampled", true));
}

TEST_F(SessionKeepTest, WithoutTheRuleASampledRequestLooksAsItDid) {
    const std::map<std::string, std::string> sampled = {
        {"traceparent", "00-0af7651916cd43dd8448eb211c80319c-b7ad6b7169203331-01"}};
    {
        const Session session(Capturing());
        const Scope serve(Extract(sampled), "sampled");
    }

    EXPECT_THAT(Events().front(), LacksBodyField("sampled"));
}

TEST_F(SessionKeepTest, FromSeveralThreadsEachLineIsWrittenOrCounted) {
    constexpr int threads = 4;
    constexpr int trees = 500;
    for (const Delivery delivery : {Delivery::Synchronous, Delivery::Asynchronous}) {
        const auto events = std::make_shared<CapturedEvents>();
        const int64 before = Reported("lines");
        SessionOptions options = KeepingFailed();
        options.sink = std::make_shared<CapturingSink>(events);
        options.delivery = delivery;
        {
            const Session session(options);
            OnThreadsAtOnce(threads, [](int) {
                for (int i = 0; i < trees; ++i) {
                    Serve("serve", i % 10 == 0);
                }
            });
        }

        EXPECT_EQ(events->size(), std::size_t{threads} * trees / 10 * 4);
        EXPECT_EQ(Reported("lines") - before, int64{threads} * trees * 9 / 10 * 4);
    }
}

TEST_F(SessionKeepTest, WorkOfATreeOnAnotherThreadGoesWithIt) {
    {
        const Session session(KeepingFailed());
        Scope scope("bad");
        std::thread(Wrap("elsewhere", [] { const Scope step("step"); })).join();
        scope.Fail("no luck");
    }

    EXPECT_EQ(DrawScopeTree(Events()),
              "bad: no luck\n"
              "  elsewhere\n"
              "    step\n");
}

TEST_F(SessionKeepTest, AForkedChildWritesItsOwnLinesOnly) {
    const Session session(KeepingFailed());
    Scope scope("parent");
    const std::size_t before = Events().size();

    EXPECT_TRUE(SucceedsInChild([this, before] {
        Serve("child", false);
        Serve("child", true);
        return Events().size() == before + 4;
    }));
    scope.Fail("no luck");
}

std::string ReadFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST_F(SessionKeepTest, AProcessThatExitsWritesWhatWaitsAndWhatItLeftOut) {
    if (hasAddressSanitizer) {
        GTEST_SKIP() << "what a thread of the parent owns counts as leaked in the child";
    }
    const std::string path = Folder().PathOf("a.log");
    const pid_t child = StartChild([&path] {
        SessionOptions options;
        options.log = path;
        options.keep.failed = true;
        const Session session(options);
        Serve("good", false);
        const Scope open("open");
        std::exit(EXIT_SUCCESS);
    });

    EXPECT_EQ(ExitCodeOf(child), EXIT_SUCCESS);
    EXPECT_THAT(ReadFile(path), HasSubstr("\"begin-open\""));
    EXPECT_THAT(ReadFile(path), HasSubstr("\"tarn-left-out\""));
    EXPECT_THAT(ReadFile(path), Not(HasSubstr("\"begin-good\"")));
}

TEST_F(SessionKeepTest, ACrashWritesWhatWaits) {
    if (hasThreadSanitizer) {
        GTEST_SKIP() << noThreadsInForkedChildren;
    }
    const std::string path = Folder().PathOf("a.log");
    const pid_t child = StartChild([&path] {
        SessionOptions options;
        options.log = path;
        options.keep.failed = true;
        options.saveOnCrash = true;
        const Session session(options);
        Serve("good", false);
        const Scope open("open");
        std::abort();
    });

    EXPECT_EQ(ExitCodeOf(child), -1);
    EXPECT_THAT(ReadFile(path), HasSubstr("\"begin-open\""));
    EXPECT_THAT(ReadFile(path), HasSubstr("\"tarn-left-out\""));
    EXPECT_THAT(ReadFile(path), HasSubstr("Crashed by SIGABRT"));
}

TEST_F(SessionKeepTest, MessagesDoNotWait) {
    const Session session(KeepingFailed());
    const Scope scope("good");

    TLog::Logger::Get().LogMessage(TLog::Info, u"hello");

    EXPECT_THAT(Log().MessageTexts(), testing::Contains("hello"));
    EXPECT_EQ(Events().size(), 0U);
}

}  // namespace
}  // namespace tarn::test
