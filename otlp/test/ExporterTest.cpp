#include "tarn/otlp/Exporter.h"

#include "ChildProcess.h"
#include "FaultyServer.h"
#include "SpansInRequest.h"
#include "TarnTest.h"
#include "TemporaryFolder.h"

#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Delivery.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::otlp {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

class ExporterTest : public tarn::test::TarnTest {
protected:
    ~ExporterTest() override { Metrics::SetDelivery({}); }

    Options To(const FaultyServer& server) const {
        Options options;
        options.url = server.Url() + "/v1/traces";
        options.firstBackOff = 5ms;
        options.batchDelay = 10ms;
        return options;
    }

    static FaultyServer::Handler Accepting() {
        return [](const FaultyServer::Request&, std::size_t) { return Accepted(); };
    }

    static std::multiset<std::string> SpansAt(const FaultyServer& server) {
        std::multiset<std::string> spans;
        for (const FaultyServer::Request& request : server.Requests()) {
            spans.merge(SpansInRequest(request.body));
        }
        return spans;
    }

    static std::size_t CountWith(const std::multiset<std::string>& spans, const std::string& text) {
        return static_cast<std::size_t>(
            std::count_if(spans.begin(), spans.end(), [&](const std::string& span) {
                return span.find(text) != std::string::npos;
            }));
    }
};

TEST_F(ExporterTest, AnActivityIsSentWhenItHasEnded) {
    FaultyServer server(Accepting());
    const TracingSession session;
    Exporter exporter(To(server));
    session.GetMonitor().SetSink(exporter.MakeSink());

    {
        const ActivityScope outer("outer");
        { const ActivityScope inner("inner"); }
        ASSERT_TRUE(exporter.Flush(20s));
        EXPECT_EQ(CountWith(SpansAt(server), "inner"), 1U);
        EXPECT_EQ(CountWith(SpansAt(server), "outer"), 0U);
        EXPECT_EQ(exporter.GetStatistics().openActivities, 1U);
    }
    ASSERT_TRUE(exporter.Flush(20s));

    EXPECT_EQ(CountWith(SpansAt(server), "outer"), 1U);
    EXPECT_EQ(exporter.GetStatistics().sent, 2U);
    EXPECT_EQ(exporter.GetStatistics().unreadable, 0U);
}

TEST_F(ExporterTest, TheNextSinkGetsEachEventAsWell) {
    FaultyServer server(Accepting());
    const TracingSession session;
    Exporter exporter(To(server));
    session.GetMonitor().SetSink(exporter.MakeSink(std::make_unique<MetricsMonitor::LogSink>()));

    { const ActivityScope scope("both"); }

    EXPECT_THAT(Log().Events(), SizeIs(2));
    EXPECT_TRUE(exporter.Shutdown(20s));
    EXPECT_EQ(exporter.GetStatistics().sent, 1U);
}

TEST_F(ExporterTest, AFlushDeliversFirstWhatIsQueuedOnTheBus) {
    Metrics::SetDelivery({.mode = Metrics::DeliveryMode::Asynchronous});
    FaultyServer server(Accepting());
    {
        const TracingSession session;
        Exporter exporter(To(server));
        session.GetMonitor().SetSink(exporter.MakeSink());

        std::vector<std::thread> threads;
        for (int thread = 0; thread < 2; ++thread) {
            threads.emplace_back([] {
                for (int count = 0; count < 100; ++count) {
                    const ActivityScope scope("burst");
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_TRUE(exporter.Flush(20s));

        EXPECT_EQ(CountWith(SpansAt(server), "burst"), 200U);
    }
}

TEST_F(ExporterTest, WhoTracesDoesNotWaitForAReceiverThatHangs) {
    FaultyServer server([](const FaultyServer::Request&, std::size_t) {
        return FaultyServer::Reaction{.kind = FaultyServer::Reaction::Kind::Hang};
    });
    Options options = To(server);
    options.timeout = 60s;
    options.queueSpans = 50;
    options.endDeadline = 50ms;
    const TracingSession session;
    Exporter exporter(options);
    session.GetMonitor().SetSink(exporter.MakeSink());

    const auto begin = std::chrono::steady_clock::now();
    for (int count = 0; count < 80; ++count) {
        const ActivityScope scope("stuck");
    }

    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
    EXPECT_EQ(exporter.GetStatistics().droppedFull, 30U);
    EXPECT_EQ(exporter.GetStatistics().waiting, 50U);
}

TEST_F(ExporterTest, LossesAreToldInTheLog) {
    FaultyServer server([](const FaultyServer::Request&, std::size_t) { return WithStatus(401); });
    const TracingSession session;
    Exporter exporter(To(server));
    session.GetMonitor().SetSink(exporter.MakeSink());

    { const ActivityScope scope("refused"); }
    EXPECT_TRUE(exporter.Shutdown(20s));

    EXPECT_EQ(exporter.GetStatistics().droppedRefused, 1U);
    EXPECT_THAT(
        Log().Messages(),
        Contains(Pair(TLog::Warn, AllOf(HasSubstr("1 span is lost"), HasSubstr("status 401")))));
}

TEST_F(ExporterTest, WhatIsOpenIsListedAtIntervalsIfItIsAskedFor) {
    FaultyServer server(Accepting());
    Options options = To(server);
    options.openInterval = 20ms;
    std::mutex mutex;
    std::vector<OpenActivityInfo> open;
    options.onOpen = [&](const std::vector<OpenActivityInfo>& found) {
        const std::lock_guard lock(mutex);
        open = found;
    };
    const TracingSession session;
    Exporter exporter(options);
    session.GetMonitor().SetSink(exporter.MakeSink());

    const ActivityScope scope("long");
    const auto end = std::chrono::steady_clock::now() + 20s;
    const auto count = [&] {
        const std::lock_guard lock(mutex);
        return open.size();
    };
    while (count() == 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
    }

    ASSERT_EQ(count(), 1U);
    const std::lock_guard lock(mutex);
    EXPECT_EQ(open[0].name, "long");
    EXPECT_GE(open[0].age, 20ms);
    EXPECT_THAT(exporter.ListOpen(), SizeIs(1));
    EXPECT_THAT(exporter.ListOpen(1h), SizeIs(0));
}

TEST_F(ExporterTest, WhatIsSwitchedOffSendsNothingAndKeepsTheNextSink) {
    FaultyServer server(Accepting());
    Options options = To(server);
    options.isEnabled = false;
    const TracingSession session;
    Exporter exporter(options);
    session.GetMonitor().SetSink(exporter.MakeSink(std::make_unique<MetricsMonitor::LogSink>()));

    { const ActivityScope scope("off"); }

    EXPECT_TRUE(exporter.Shutdown(20s));
    EXPECT_THAT(Log().Events(), SizeIs(2));
    EXPECT_EQ(server.Count(), 0U);
    EXPECT_EQ(exporter.GetStatistics().spans, 0U);
}

TEST_F(ExporterTest, ASinkThatOutlivesItsExporterDropsWhatComes) {
    FaultyServer server(Accepting());
    const TracingSession session;
    {
        Exporter exporter(To(server));
        session.GetMonitor().SetSink(exporter.MakeSink());
        const ActivityScope scope("before");
    }

    { const ActivityScope scope("after"); }

    EXPECT_EQ(CountWith(SpansAt(server), "before"), 1U);
    EXPECT_EQ(CountWith(SpansAt(server), "after"), 0U);
}

// Thread sanitizer does not support threads in forked children.
#ifndef __SANITIZE_THREAD__

TEST_F(ExporterTest, AForkedChildSendsItsOwnAndNothingTwice) {
    for (const auto mode :
         {Metrics::DeliveryMode::Synchronous, Metrics::DeliveryMode::Asynchronous}) {
        Metrics::SetDelivery({.mode = mode});
        FaultyServer server(Accepting());
        Options options = To(server);
        options.batchDelay = 10s;  // so that something waits when the process is forked
        const TracingSession session;
        Exporter exporter(options);
        session.GetMonitor().SetSink(exporter.MakeSink());
        { const ActivityScope scope("first-of-parent"); }
        ASSERT_TRUE(exporter.Flush(20s));  // a connection is open
        { const ActivityScope scope("queued-in-parent"); }

        {
            const ActivityScope around("around");
            const bool isGood = tarn::test::SucceedsInChild([&] {
                { const ActivityScope scope("of-child"); }
                return exporter.Flush(20s) && exporter.GetStatistics().sent == 1;
            });
            EXPECT_TRUE(isGood);
        }
        ASSERT_TRUE(exporter.Flush(20s));

        const auto spans = SpansAt(server);
        for (const char* const name :
             {"first-of-parent", "queued-in-parent", "around", "of-child"}) {
            EXPECT_EQ(CountWith(spans, name), 1U) << name;
        }
        EXPECT_EQ(exporter.GetStatistics().sent, 3U);
    }
}

#endif

#ifdef TARNVIEW

TEST_F(ExporterTest, ALogThatIsPushedYieldsWhatWasSentWhileItWasWritten) {
    const tarn::test::TemporaryFolder folder;
    const std::string log = folder.PathOf("live.log");
    FaultyServer live(Accepting());
    const auto former = TLog::ReplaceBackEnd(TLog::MakeJsonFileBackEnd(log));
    {
        const TracingSession session;
        session.GetMonitor().SetAdditionalFields(true);
        Exporter exporter(To(live));
        session.GetMonitor().SetSink(
            exporter.MakeSink(std::make_unique<MetricsMonitor::LogSink>()));
        for (int count = 0; count < 50; ++count) {
            ActivityScope request(
                "request", {{"count", count}, {"half", count / 2.0}, {"even", count % 2 == 0}});
            request.Add({{"text", "\xc3\xa4\x01\"\\ \xed\xa0\x80"}, {"big", int64{1} << 60}});
            try {
                ActivityScope step("step", {{"n", 1.0 / 3}});
                step.Cancel({{"msg", "enough"}});
                const ActivityScope leaf("leaf");
                throw std::runtime_error("no");
            } catch (const std::runtime_error&) {
            }
        }
        ASSERT_TRUE(exporter.Flush(20s));
        ASSERT_EQ(exporter.GetStatistics().sent, 150U);
    }
    TLog::ReplaceBackEnd(former);

    FaultyServer pushed(Accepting());
    const std::string command =
        std::string(TARNVIEW) + " push " + pushed.Url() + " " + log + " > " + folder.PathOf("out");
    ASSERT_EQ(std::system(command.c_str()), 0);

    EXPECT_EQ(SpansAt(live).size(), 150U);
    EXPECT_EQ(SpansAt(pushed), SpansAt(live));
}

#endif

}  // namespace
}  // namespace tarn::otlp
