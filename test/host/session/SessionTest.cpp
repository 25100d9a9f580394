#include "tarn/Session.h"

#include "AllocationCounter.h"
#include "CapturingSink.h"
#include "ChildProcess.h"
#include "Matchers.h"
#include "ScopeTree.h"
#include "TarnTest.h"
#include "TemporaryFolder.h"
#include "Threads.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/Trace.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace std::chrono_literals;

constexpr const char* variables[] = {"TARN_LOG",
                                     "TARN_WRITING",
                                     "TARN_DELIVERY",
                                     "TARN_OFF",
                                     "TARN_RANK",
                                     "TARN_CPU",
                                     "TARN_MEMORY",
                                     "TARN_EXTRAS",
                                     "TARN_CONFIG"};

class SessionTest : public TarnTest {
protected:
    SessionTest() { ForgetVariables(); }

    ~SessionTest() override {
        ForgetVariables();
        Metrics::SetDelivery(m_delivery);
    }

    static void Say(const char* variable, const std::string& value) {
        setenv(variable, value.c_str(), 1);
    }

    /// A file of the test's own.
    std::string Write(const std::string& name, const std::string& text) {
        const std::string path = m_folder.PathOf(name);
        std::ofstream(path) << text;
        return path;
    }

    static std::string Read(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    /// Options with a sink that the test reads.
    SessionOptions Capturing() {
        SessionOptions options;
        options.sink = std::make_shared<CapturingSink>(m_events);
        return options;
    }

    const CapturedEvents& Events() const { return *m_events; }

    std::vector<std::string> Warnings() {
        std::vector<std::string> warnings;
        for (const auto& [severity, text] : Log().Messages()) {
            if (severity == TLog::Warn) {
                warnings.push_back(text);
            }
        }
        return warnings;
    }

    /// Waits for what another thread brings about.
    static bool Becomes(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(5ms);
        }
        return true;
    }

    static int RankOn() { return static_cast<int>(TarnSettings::GetInstance().GetRankOn()); }

    const TemporaryFolder& Folder() const { return m_folder; }

private:
    static void ForgetVariables() {
        for (const char* const variable : variables) {
            unsetenv(variable);
        }
    }

    TemporaryFolder m_folder;
    Metrics::DeliveryOptions m_delivery = Metrics::GetDelivery();
    std::shared_ptr<CapturedEvents> m_events = std::make_shared<CapturedEvents>();
};

TEST_F(SessionTest, ScopesAreTracedAndHaveIdsForAsLongAsItLives) {
    {
        const Session session(Capturing());
        const Scope load("load");
        const Scope parse("parse");
        EXPECT_FALSE(parse.GetActivityId().IsEmpty());
        EXPECT_NE(parse.GetActivityId().View(), load.GetActivityId().View());
    }
    { const Scope late("late"); }

    EXPECT_EQ(DrawScopeTree(Events()),
              "load\n"
              "  parse\n");
}

TEST_F(SessionTest, ItsEndPutsBackWhatIsTracedAndMeasured) {
    TarnSettings::GetInstance().SetOffs({"before"});
    TarnSettings::GetInstance().SetRankOn(TraceRank(3));
    {
        SessionOptions options = Capturing();
        options.off = {"meanwhile"};
        options.rank = 7;
        options.cpu = true;
        options.memory = MemoryFigures::All;
        const Session session(options);

        EXPECT_TRUE(OptTarn::GetIsTarnEnabled());
        EXPECT_TRUE(OptTarn::GetIsForegroundThreadContextEnabled());
        EXPECT_TRUE(OptTarn::GetIsTarnPlatforms());
        EXPECT_TRUE(corvala::cputime::GetCpuTrackingEnabled());
        EXPECT_EQ(corvala::memory::GetMemoryTrackingMode(), corvala::memory::MemoryTrackingAll);
        EXPECT_EQ(TarnSettings::GetInstance().GetCopyOfOffs(), TarnSettings::Names{"meanwhile"});
        EXPECT_EQ(RankOn(), 7);
    }

    EXPECT_FALSE(OptTarn::GetIsTarnEnabled());
    EXPECT_FALSE(OptTarn::GetIsForegroundThreadContextEnabled());
    EXPECT_FALSE(OptTarn::GetIsTarnPlatforms());
    EXPECT_FALSE(corvala::cputime::GetCpuTrackingEnabled());
    EXPECT_EQ(corvala::memory::GetMemoryTrackingMode(), corvala::memory::MemoryTrackingOff);
    EXPECT_EQ(TarnSettings::GetInstance().GetCopyOfOffs(), TarnSettings::Names{"before"});
    EXPECT_EQ(RankOn(), 3);
}

TEST_F(SessionTest, TheEnvironmentWinsOverTheFileWhichWinsOverTheProgram) {
    SessionOptions options = Capturing();
    options.rank = 1;
    {
        const Session session(options);
        EXPECT_EQ(RankOn(), 1);
    }
    options.config = Write("tarn.conf", "# what holds here\n\nrank = 2\noff = a, b\n");
    {
        const Session session(options);
        EXPECT_EQ(RankOn(), 2);
        EXPECT_EQ(TarnSettings::GetInstance().GetCopyOfOffs(), (TarnSettings::Names{"a", "b"}));
    }
    Say("TARN_RANK", "3");
    Say("TARN_OFF", "c");
    {
        const Session session(options);
        EXPECT_EQ(RankOn(), 3);
        EXPECT_EQ(TarnSettings::GetInstance().GetCopyOfOffs(), TarnSettings::Names{"c"});
    }
    options.readEnvironment = false;
    {
        const Session session(options);
        EXPECT_EQ(RankOn(), 2);
    }
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SessionTest, TheEnvironmentNamesAnotherConfigurationFile) {
    SessionOptions options = Capturing();
    options.config = Write("one.conf", "rank = 1\n");
    Say("TARN_CONFIG", Write("two.conf", "rank = 2\n"));

    const Session session(options);

    EXPECT_EQ(RankOn(), 2);
}

TEST_F(SessionTest, LinesCanGoThroughAJournal) {
    const std::string path = Folder().PathOf("activity.log");
    Say("TARN_LOG", path);
    Say("TARN_WRITING", "journal,files=2");
    const Session session;
    const std::string journal = path + "." + std::to_string(getpid()) + ".journal";
    EXPECT_TRUE(std::filesystem::exists(journal));
    { const Scope scope("scope"); }
    TLog::FlushLog();

    EXPECT_THAT(Read(path), HasSubstr("\"event\":\"end-scope\""));
    TLog::ReplaceBackEnd(nullptr);
    EXPECT_FALSE(std::filesystem::exists(journal));
}

TEST_F(SessionTest, AllThatTheEnvironmentSaysHolds) {
    const std::string path = Folder().PathOf("activity.log");
    Say("TARN_LOG", path);
    Say("TARN_WRITING", "bytes=1K,files=2");
    Say("TARN_DELIVERY", "async,queue=1M");
    Say("TARN_CPU", "1");
    Say("TARN_MEMORY", "allocations");
    Say("TARN_EXTRAS", "on");
    {
        const Session session;
        const Scope outer("outer");
        for (int i = 0; i < 10; ++i) {
            const Scope inner("inner");
        }

        EXPECT_EQ(Metrics::GetDelivery().mode, Metrics::DeliveryMode::Asynchronous);
        EXPECT_EQ(Metrics::GetDelivery().whenFull, Metrics::WhenQueueIsFull::Wait);
        EXPECT_EQ(Metrics::GetDelivery().queueBytes, std::size_t{1} << 20);
        EXPECT_TRUE(corvala::cputime::GetCpuTrackingEnabled());
        EXPECT_EQ(corvala::memory::GetMemoryTrackingMode(),
                  corvala::memory::MemoryTrackingAllocations);
    }

    const std::string last = Read(path);
    EXPECT_THAT(last, HasSubstr("\"event\":\"end-outer\""));
    EXPECT_THAT(last, HasSubstr("\"seq\":"));
    EXPECT_FALSE(Read(Folder().PathOf("activity.1.log")).empty());
    EXPECT_FALSE(Read(Folder().PathOf("activity.2.log")).empty());
    EXPECT_TRUE(Read(Folder().PathOf("activity.3.log")).empty());
}

TEST_F(SessionTest, WhatIsSaidWronglyIsToldOnceAndIgnored) {
    Say("TARN_DELIVERY", "fast");
    Say("TARN_RANK", "high");
    Say("TARN_MEMORY", "3");
    Say("TARN_WRITING", "files=0");
    SessionOptions options = Capturing();
    options.rank = 4;
    options.config = Write("tarn.conf", "colour = red\nrank\nmemory = much\n");

    const Session session(options);

    EXPECT_EQ(RankOn(), 4);
    EXPECT_EQ(Metrics::GetDelivery().mode, Metrics::DeliveryMode::Synchronous);
    EXPECT_THAT(
        Warnings(),
        testing::UnorderedElementsAre(
            "TARN_DELIVERY \"fast\" is ignored; it should be sync, async or refuse, and perhaps "
            ",queue=256K.",
            "TARN_RANK \"high\" is ignored; it should be a number.",
            "TARN_MEMORY \"3\" is ignored; it should be 0, 1 (allocations) or 2 (all).",
            "TARN_WRITING \"files=0\" is ignored; it should be files=1 or more.",
            options.config + ":1: \"colour = red\" is ignored; there is no such setting.",
            options.config + ":2: \"rank\" is ignored; it should be a name, \"=\" and a value.",
            options.config +
                ":3: memory \"much\" is ignored; it should be 0, 1 (allocations) or 2 (all)."));
}

TEST_F(SessionTest, ALogFileThatCannotBeOpenedIsToldAndTheProgramGoesOn) {
    SessionOptions options;
    options.log = Folder().PathOf("missing/activity.log");
    {
        const Session session(options);
        const Scope load("load");
    }

    EXPECT_THAT(
        Warnings(),
        Contains(AllOf(HasSubstr("The log stays where it is"), HasSubstr("missing/activity.log"))));
    EXPECT_THAT(Log().Events(), Not(IsEmpty()));
}

TEST_F(SessionTest, AConfigurationFileThatCannotBeReadIsTold) {
    SessionOptions options = Capturing();
    options.config = Folder().PathOf("missing.conf");
    { const Session session(options); }
    options.config = Folder().Path().string();
    { const Session session(options); }

    EXPECT_THAT(Warnings(),
                testing::ElementsAre(HasSubstr("missing.conf cannot be read: No such file"),
                                     HasSubstr("cannot be read: It is not a file")));
}

TEST_F(SessionTest, WhenItIsOffAScopeIsWhatOneIsWhoseNameIsOff) {
    Say("TARN_LOG", "off");
    const Session session(Capturing());
    { const Scope first("first"); }

    const AllocationCounter counter;
    {
        const Scope scope("scope", {{"path", std::string(100, 'x')}});
        EXPECT_FALSE(Current()) << "nothing of it is there";
        EXPECT_TRUE(scope.GetActivityId().IsEmpty());
    }
    EXPECT_TRUE(TarnSettings::GetInstance().IsOff(TraceRank::Default));
    EXPECT_LE(counter.Allocations(), 1U) << "the test's own text";
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(SessionTest, AFileThatChangesIsReadAgain) {
    const std::string path = Write("tarn.conf", "log = off\nrank = x\n");
    SessionOptions options = Capturing();
    options.config = path;
    const Session session(options);
    { const Scope before("before"); }
    EXPECT_TRUE(TarnSettings::GetInstance().IsOff(TraceRank::Default));

    Write("tarn.conf", "off = tick\nrank = x\nextras = 1\n");
    ASSERT_TRUE(Becomes([] { return !TarnSettings::GetInstance().IsOff(TraceRank::Default); }));
    ASSERT_TRUE(Becomes([] { return TarnSettings::GetInstance().IsOff("tick"); }));
    {
        const Scope load("load");
        const Scope tick("tick");
    }
    // An editor writes a new file and puts it in the place of the old one.
    const std::string next = Write("tarn.conf.new", "delivery = async\nrank = x\n");
    ASSERT_EQ(std::rename(next.c_str(), path.c_str()), 0);
    ASSERT_TRUE(Becomes([] { return !TarnSettings::GetInstance().IsOff("tick"); }));

    EXPECT_EQ(Metrics::GetDelivery().mode, Metrics::DeliveryMode::Asynchronous);
    EXPECT_EQ(DrawScopeTree(Events()), "load\n");
    EXPECT_THAT(Warnings(), testing::ElementsAre(HasSubstr("tarn.conf:2: rank \"x\" is ignored")))
        << "an error that stays is told once";
}

TEST_F(SessionTest, FiguresThatAChangeOfTheFileAsksForWaitForTheNextStart) {
    SessionOptions options = Capturing();
    options.config = Write("tarn.conf", "rank = 1\n");
    const Session session(options);

    Write("tarn.conf", "rank = 2\ncpu = 1\n");
    ASSERT_TRUE(Becomes([] { return RankOn() == 2; }));

    EXPECT_FALSE(corvala::cputime::GetCpuTrackingEnabled());
    EXPECT_THAT(Warnings(), Contains(HasSubstr("is chosen when the program starts")));
}

TEST_F(SessionTest, ASecondOneSaysSoAndDoesNothing) {
    {
        const Session first(Capturing());
        const uint64 listeners = Metrics::MetricsManager::GetInstance().GetConsumerCount();
        {
            SessionOptions options = Capturing();
            options.rank = 9;
            const Session second(options);
            second.SetSink(nullptr);

            EXPECT_TRUE(first.IsFirst());
            EXPECT_FALSE(second.IsFirst());
            EXPECT_EQ(RankOn(), 0);
            EXPECT_EQ(Metrics::MetricsManager::GetInstance().GetConsumerCount(), listeners);
        }
        const Scope scope("scope");
    }
    EXPECT_THAT(Warnings(), testing::ElementsAre(HasSubstr("there is another one")));
    EXPECT_EQ(DrawScopeTree(Events()), "scope\n");

    const Session third(Capturing());
    EXPECT_TRUE(third.IsFirst());
}

TEST_F(SessionTest, ForWhomTheWorkIsDoneIsInEachLineOfAllThreads) {
    SessionOptions options = Capturing();
    options.user = "anna";
    options.site = "north";
    options.sessionId = "s-17";
    {
        const Session session(options);
        { const Scope first("first"); }
        {
            const Scope second("second");
            OnAnotherThread([from = Handoff()] { const Scope handed(from, "handed"); });
        }
        OnAnotherThread([] { const Scope foreign("foreign"); });
    }

    ASSERT_EQ(Events().size(), 8U);
    EXPECT_THAT(Events(), Each(AllOf(HasUser("anna"), HasSite("north"), HasSession("s-17"))));
}

TEST_F(SessionTest, EachTreeHasARequestThatAllOfItsLinesCarry) {
    {
        const Session session(Capturing());
        for (int i = 0; i < 2; ++i) {
            const Scope load("load");
            const Scope parse("parse");
            OnAnotherThread([from = Handoff()] { const Scope handed(from, "handed"); });
        }
    }

    std::map<std::string, std::set<std::string>> requestsOfRoot;
    for (const TLog::Event& event : Events()) {
        const std::string name = event.GetName().ToUtf8();
        const auto root = name.ends_with("load") ? Field(event, Table::Activity, "id")
                                                 : Field(event, Table::Activity, "root");
        ASSERT_TRUE(root.has_value());
        std::ostringstream text;
        text << testing::PrintToString(*root);
        requestsOfRoot[text.str()].insert(event.GetActivityInfo()->GetRequestId().ToUtf8());
    }
    ASSERT_EQ(requestsOfRoot.size(), 2U);
    std::set<std::string> all;
    for (const auto& [root, requests] : requestsOfRoot) {
        EXPECT_EQ(requests.size(), 1U);
        all.insert(requests.begin(), requests.end());
    }
    EXPECT_EQ(all.size(), 2U);
}

TEST_F(SessionTest, WithExtrasMessagesNameTheActivityThatTheyAreLoggedIn) {
    SessionOptions options;
    options.log = Folder().PathOf("activity.log");
    options.extras = true;
    std::string inner;
    std::string outer;
    {
        const Session session(options);
        TLog::Logger& logger = TLog::Logger::Get();
        logger.LogMessage(TLog::Info, u"before");
        const Scope load("load");
        outer = load.GetActivityId().View();
        logger.LogMessage(TLog::Info, u"at the top");
        {
            const Scope parse("parse");
            inner = parse.GetActivityId().View();
            logger.LogMessage(TLog::Info, u"inside");
        }
        OnAnotherThread([&logger] { logger.LogMessage(TLog::Info, u"elsewhere"); });
        OnAnotherThread([&logger, from = Handoff()] {
            const Scope handed(from, "handed");
            logger.LogMessage(TLog::Info, u"handed over");
        });
    }
    TLog::Logger::Get().LogMessage(TLog::Info, u"after");

    std::map<std::string, std::string> rest;
    std::istringstream lines(Read(options.log));
    for (std::string line; std::getline(lines, line);) {
        constexpr std::string_view key = R"("message":")";
        if (const std::size_t begin = line.find(key); begin != std::string::npos) {
            const std::size_t end = line.find('"', begin + key.size());
            const std::size_t activity = line.find(R"(,"activity":)");
            rest[line.substr(begin + key.size(), end - begin - key.size())] =
                activity == std::string::npos ? "" : line.substr(activity);
        }
    }
    const auto named = [](const std::string& id, const std::string& root) {
        return R"(,"activity":{"id":")" + id + R"(","root":")" + root + "\"}}";
    };
    EXPECT_EQ(rest.at("before"), "");
    EXPECT_EQ(rest.at("at the top"), named(outer, outer));
    EXPECT_EQ(rest.at("inside"), named(inner, outer));
    EXPECT_EQ(rest.at("elsewhere"), "");
    EXPECT_THAT(rest.at("handed over"), HasSubstr(R"(","root":")" + outer + "\"}"));
    EXPECT_EQ(rest.at("after"), "");
}

TEST_F(SessionTest, WithoutExtrasMessagesAreAsTheyWere) {
    SessionOptions options;
    options.log = Folder().PathOf("activity.log");
    {
        const Session session(options);
        const Scope load("load");
        TLog::Logger::Get().LogMessage(TLog::Info, u"inside");
    }

    std::istringstream lines(Read(options.log));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.find("message") == std::string::npos ||
                    line.find("activity") == std::string::npos)
            << line;
    }
}

TEST_F(SessionTest, ItsSinkIsReplacedWhileOthersTrace) {
    const auto second = std::make_shared<CapturedEvents>();
    const Session session(Capturing());
    std::atomic<bool> isDone{false};
    std::thread tracer([&isDone] {
        while (!isDone) {
            const Scope scope("scope");
        }
    });

    std::this_thread::sleep_for(5ms);
    session.SetSink(std::make_shared<CapturingSink>(second));
    const std::size_t count = Events().size();
    session.SetSink(nullptr);
    const std::size_t countOfSecond = second->size();
    isDone = true;
    tracer.join();

    EXPECT_EQ(Events().size(), count) << "the former sink is not called any more";
    EXPECT_EQ(second->size(), countOfSecond);
}

TEST_F(SessionTest, AForkedChildEndsItsSession) {
    SessionOptions options = Capturing();
    options.config = Write("tarn.conf", "rank = 1\n");
    auto session = std::make_unique<Session>(options);

    const bool ended = SucceedsInChild([&session] {
        const Scope scope("in the child");
        session.reset();
        return RankOn() == 0;
    });

    EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace tarn::test
