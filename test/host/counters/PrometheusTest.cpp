#include "tarn/Prometheus.h"

#include "AllocationCounter.h"
#include "ChildProcess.h"
#include "SilentSink.h"
#include "TarnTest.h"
#include "TemporaryFolder.h"
#include "Threads.h"

#include "tarn/LibraryCounters.h"
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/TAllocate.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Key;
using testing::Not;
using testing::Pair;

using namespace std::chrono_literals;

/// Values by sample, "name{labels}", as the text has them.
using Samples = std::map<std::string, std::string>;

Samples Read(const std::string& text) {
    Samples samples;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::size_t blank = line.rfind(' ');
        const auto [place, isNew] = samples.emplace(line.substr(0, blank), line.substr(blank + 1));
        EXPECT_TRUE(isNew) << "twice: " << place->first;
    }
    return samples;
}

Samples Scrape() {
    return Read(PrometheusText());
}

std::uint64_t CountOf(const Samples& samples, const std::string& name) {
    const auto found = samples.find("tarn_activity_duration_seconds_count{name=\"" + name + "\"}");
    return found == samples.end() ? 0 : std::stoull(found->second);
}

/// Time goes on only where a test says so.
class StoppedClock {
public:
    StoppedClock() : m_former(Metrics::SetClock(&Now)) { s_now = 1'000'000'000; }

    ~StoppedClock() { Metrics::SetClock(m_former); }

    StoppedClock(const StoppedClock&) = delete;
    StoppedClock& operator=(const StoppedClock&) = delete;

    static void GoOn(std::chrono::nanoseconds time) { s_now += time.count(); }

private:
    static Metrics::ClockReading Now() noexcept {
        Metrics::ClockReading reading;
        reading.time = s_now;
        return reading;
    }

    static inline std::atomic<std::int64_t> s_now{0};

    Metrics::ClockFunction m_former;
};

class PrometheusTest : public TarnTest {
protected:
    PrometheusTest() { unsetenv("TARN_COUNTERS"); }

    ~PrometheusTest() override {
        unsetenv("TARN_COUNTERS");
        Metrics::SetDelivery(m_delivery);
    }

    static SessionOptions Counting() {
        SessionOptions options = Silent();
        options.counters = true;
        return options;
    }

    static SessionOptions Silent() {
        SessionOptions options;
        options.sink = std::make_shared<SilentSink>();
        return options;
    }

private:
    Metrics::DeliveryOptions m_delivery = Metrics::GetDelivery();
};

TEST_F(PrometheusTest, EachNameHasAHistogramOfElapsedTime) {
    const StoppedClock clock;
    const Session session(Counting());
    for (const auto time : {100us, 101us, 2'000us, 61'000'000us}) {
        const Scope load("load");
        StoppedClock::GoOn(time);
    }
    { const Scope parse("parse"); }

    const Samples samples = Scrape();

    const std::string bucket = "tarn_activity_duration_seconds_bucket{name=\"load\",le=\"";
    EXPECT_EQ(samples.at(bucket + "0.0001\"}"), "1") << "the limit belongs to its bucket";
    EXPECT_EQ(samples.at(bucket + "0.0005\"}"), "2");
    EXPECT_EQ(samples.at(bucket + "0.001\"}"), "2");
    EXPECT_EQ(samples.at(bucket + "0.005\"}"), "3");
    EXPECT_EQ(samples.at(bucket + "60\"}"), "3");
    EXPECT_EQ(samples.at(bucket + "+Inf\"}"), "4");
    EXPECT_EQ(samples.at("tarn_activity_duration_seconds_sum{name=\"load\"}"), "61.002201");
    EXPECT_EQ(samples.at("tarn_activity_duration_seconds_count{name=\"load\"}"), "4");
    EXPECT_EQ(CountOf(samples, "parse"), 1U);
    EXPECT_EQ(samples.at("tarn_activity_names"), "2");
}

TEST_F(PrometheusTest, FailuresAndEarlyTerminationsAreCountedApart) {
    const Session session(Counting());
    {
        Scope load("load");
        load.Fail("disk full");
    }
    {
        Scope load("load");
        load.Cancel();
    }
    try {
        const Scope load("load");
        throw std::runtime_error("leaves it");
    } catch (const std::runtime_error&) {
        const Scope load("load");
    }

    const Samples samples = Scrape();

    EXPECT_EQ(samples.at("tarn_activity_failures_total{name=\"load\"}"), "1");
    EXPECT_EQ(samples.at("tarn_activity_early_terminations_total{name=\"load\"}"), "2");
    EXPECT_EQ(CountOf(samples, "load"), 4U);
}

TEST_F(PrometheusTest, ActivitiesAreChargedWithWhatIsTheirsAlone) {
    SessionOptions options = Counting();
    options.cpu = true;
    options.memory = MemoryFigures::Allocations;
    const Session session(options);
    {
        const Scope outer("outer");
        TFree(TMalloc(1000));
        const Scope inner("inner");
        TFree(TMalloc(24));
        TFree(TMalloc(40));
    }

    const Samples samples = Scrape();

    EXPECT_EQ(samples.at("tarn_activity_allocated_bytes_total{name=\"outer\"}"), "1000");
    EXPECT_EQ(samples.at("tarn_activity_allocated_bytes_total{name=\"inner\"}"), "64");
    EXPECT_EQ(samples.at("tarn_activity_allocations_total{name=\"outer\"}"), "1");
    EXPECT_EQ(samples.at("tarn_activity_allocations_total{name=\"inner\"}"), "2");
    EXPECT_THAT(
        samples,
        AllOf(Contains(Key("tarn_activity_cpu_seconds_total{name=\"outer\",mode=\"user\"}")),
              Contains(Key("tarn_activity_cpu_seconds_total{name=\"outer\",mode=\"kernel\"}"))));
}

TEST_F(PrometheusTest, WhatIsNotMeasuredIsMissing) {
    const Session session(Counting());
    { const Scope load("load"); }

    EXPECT_THAT(PrometheusText(),
                AllOf(Not(HasSubstr("cpu_seconds")), Not(HasSubstr("allocated"))));
}

TEST_F(PrometheusTest, FurtherNamesAreCountedTogether) {
    SessionOptions options = Counting();
    options.countedNames = 2;
    const Session session(options);
    for (const char* const name : {"one", "two", "three", "four", "one", "(other)"}) {
        const Scope scope(name);
    }

    const Samples samples = Scrape();

    EXPECT_EQ(CountOf(samples, "one"), 2U);
    EXPECT_EQ(CountOf(samples, "two"), 1U);
    EXPECT_EQ(CountOf(samples, "(other)"), 3U);
    EXPECT_EQ(CountOf(samples, "three"), 0U);
    EXPECT_EQ(samples.at("tarn_activity_names"), "2");
    EXPECT_EQ(samples.at("tarn_activity_names_limit"), "2");
}

TEST_F(PrometheusTest, NamesOfAnyCharactersMakeLabelsThatAreReadAndDiffer) {
    const std::string longName(300, 'x');
    const std::string manyBytes = std::string(199, 'y') + "\u00E9\u00E9";
    const Session session(Counting());
    for (const std::string& name : {std::string("a\"b\\c\ne"),
                                    longName + "1",
                                    longName + "2",
                                    manyBytes,
                                    std::string("\u00FCber}{,= #")}) {
        const Scope scope{Name(name)};
    }

    const Samples samples = Scrape();

    EXPECT_EQ(CountOf(samples, R"(\"a\"\"b\\c\ne\")"), 1U);
    EXPECT_EQ(CountOf(samples, std::string(200, 'x') + "\u2026"), 2U);
    EXPECT_EQ(CountOf(samples, std::string(199, 'y') + "\u2026"), 1U) << "cut between characters";
    EXPECT_EQ(CountOf(samples, "\u00FCber}{,= #"), 1U);
    const TemporaryFolder folder;
    std::ofstream(folder.PathOf("metrics")) << PrometheusText();
    EXPECT_EQ(std::system(("promtool check metrics <" + folder.PathOf("metrics")).c_str()), 0);
}

TEST_F(PrometheusTest, NothingOfActivitiesIsCountedUnlessTheSessionCounts) {
    const LibraryCounters before = GetLibraryCounters();
    {
        const Session session(Silent());
        { const Scope load("load"); }

        EXPECT_THAT(PrometheusText(),
                    AllOf(Not(HasSubstr("tarn_activity")),
                          Not(HasSubstr("tarn_scopes")),
                          HasSubstr("\ntarn_bus_delivered_events_total "),
                          HasSubstr("\ntarn_log_lines_total "),
                          HasSubstr("\ntarn_left_out_total{what=\"scopes\"} 0\n")));
    }
    EXPECT_EQ(GetLibraryCounters().scopesOpened, before.scopesOpened);
    EXPECT_THAT(PrometheusText(), HasSubstr("\ntarn_bus_queues "));
}

TEST_F(PrometheusTest, TheLibrarysOwnCountersAreTold) {
    const LibraryCounters before = GetLibraryCounters();
    const Session session(Counting());
    {
        const Scope outer("outer");
        const Scope inner("inner");
        const Samples samples = Scrape();
        EXPECT_EQ(samples.at("tarn_scopes_opened_total"), std::to_string(before.scopesOpened + 2));
        EXPECT_EQ(samples.at("tarn_scopes_closed_total"), std::to_string(before.scopesClosed));
    }
    EXPECT_EQ(GetLibraryCounters().scopesClosed, before.scopesClosed + 2);
    EXPECT_EQ(GetLibraryCounters().requestContextsCreated, before.requestContextsCreated + 1);
}

TEST_F(PrometheusTest, TheEnvironmentAndTheFileSwitchItOn) {
    const TemporaryFolder folder;
    SessionOptions options = Silent();
    options.config = folder.PathOf("tarn.conf");
    std::ofstream(options.config) << "counters = names=7\n";
    {
        const Session session(options);
        EXPECT_THAT(Scrape(), Contains(Pair("tarn_activity_names_limit", "7")));
    }
    setenv("TARN_COUNTERS", "0", 1);
    {
        const Session session(options);
        EXPECT_THAT(PrometheusText(), Not(HasSubstr("tarn_activity")));
    }
    setenv("TARN_COUNTERS", "names=many", 1);
    const Session session(options);
    EXPECT_THAT(Scrape(), Contains(Pair("tarn_activity_names_limit", "7")));
    ASSERT_FALSE(Log().Messages().empty());
    EXPECT_THAT(Log().Messages(),
                Contains(Pair(TLog::Warn, HasSubstr("TARN_COUNTERS \"names=many\" is ignored"))));
}

TEST_F(PrometheusTest, AFileThatChangesSwitchesItOffAndOnAgain) {
    const TemporaryFolder folder;
    SessionOptions options = Silent();
    options.config = folder.PathOf("tarn.conf");
    std::ofstream(options.config) << "counters = 1\n";
    const Session session(options);
    { const Scope load("load"); }
    ASSERT_EQ(CountOf(Scrape(), "load"), 1U);
    const auto becomes = [](bool counting) {
        const auto end = std::chrono::steady_clock::now() + 30s;
        while ((PrometheusText().find("tarn_activity_names") != std::string::npos) != counting &&
               std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(5ms);
        }
    };

    std::ofstream(options.config) << "counters = 0\n";
    becomes(false);
    { const Scope load("load"); }
    EXPECT_EQ(CountOf(Scrape(), "load"), 0U);
    std::ofstream(options.config) << "counters = names=3\n";
    becomes(true);
    { const Scope load("load"); }

    EXPECT_EQ(CountOf(Scrape(), "load"), 1U) << "it begins anew";
}

TEST_F(PrometheusTest, CountingAllocatesNothingOnceANameIsKnown) {
    // Of the road itself, on and off alike.
    const auto allocations = [] {
        const AllocationCounter counter;
        for (int i = 0; i < 100; ++i) {
            const Scope load("load");
        }
        return counter.Allocations();
    };
    const auto warm = [] {
        for (int i = 0; i < 100; ++i) {
            const Scope load("load");
        }
    };
    uint64 off = 0;
    {
        const Session session(Silent());
        warm();
        off = allocations();
    }
    const Session session(Counting());
    warm();

    EXPECT_EQ(allocations(), off);
    EXPECT_EQ(CountOf(Scrape(), "load"), 200U);
}

TEST_F(PrometheusTest, EachScrapeIsOfOneMomentWhileOthersTrace) {
    const Session session(Counting());
    std::atomic<int> left{2};
    std::vector<std::thread> tracers;
    for (int i = 0; i < 2; ++i) {
        tracers.emplace_back([&left] {
            for (int round = 0; round < 3000; ++round) {
                const Scope outer("outer");
                const Scope inner("inner");
            }
            --left;
        });
    }
    std::uint64_t former = 0;
    do {
        const Samples samples = Scrape();
        const std::uint64_t inner = CountOf(samples, "inner");
        const std::uint64_t outer = CountOf(samples, "outer");
        EXPECT_GE(inner, former);
        // Inner ones end first, and each thread is within one outer one at most.
        EXPECT_GE(inner, outer);
        EXPECT_LE(inner, outer + 2);
        if (inner != 0) {
            EXPECT_EQ(
                samples.at("tarn_activity_duration_seconds_bucket{name=\"inner\",le=\"+Inf\"}"),
                std::to_string(inner));
        }
        former = inner;
    } while (left > 0);
    for (std::thread& tracer : tracers) {
        tracer.join();
    }

    EXPECT_EQ(CountOf(Scrape(), "inner"), 6000U);
}

TEST_F(PrometheusTest, AForkedChildGoesOnWithWhatItsParentCounted) {
    const Session session(Counting());
    { const Scope load("load"); }
    std::atomic<bool> isDone{false};
    std::thread tracer([&isDone] {
        while (!isDone) {
            const Scope other("other");
        }
    });
    std::thread scraper([&isDone] {
        while (!isDone) {
            static_cast<void>(PrometheusText());
        }
    });

    int succeeded = 0;
    for (int i = 0; i < 20; ++i) {
        succeeded += SucceedsInChild([] {
            { const Scope load("load"); }
            return CountOf(Scrape(), "load") == 2;
        });
    }
    isDone = true;
    tracer.join();
    scraper.join();

    EXPECT_EQ(succeeded, 20);
    EXPECT_EQ(CountOf(Scrape(), "load"), 1U);
}

TEST_F(PrometheusTest, WhatIsDeliveredLaterIsCountedAfterAFlush) {
    SessionOptions options = Counting();
    options.delivery = Delivery::Asynchronous;
    const Session session(options);
    OnThreadsAtOnce(2, [](int) {
        for (int i = 0; i < 500; ++i) {
            const Scope load("load");
        }
    });

    ASSERT_TRUE(Metrics::Flush(30s));

    EXPECT_EQ(CountOf(Scrape(), "load"), 1000U);
}

}  // namespace
}  // namespace tarn::test
