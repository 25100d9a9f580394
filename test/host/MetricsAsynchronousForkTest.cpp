#include "MetricsAsynchronousTest.h"
#include "Sanitizers.h"
#include "SysChildProcess.h"

#include <atomic>
#include <chrono>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using HostTest::SucceedsInChild;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::patience;
using MetricsTest::Subscription;
using MetricsTest::Work;
using std::chrono::milliseconds;
using testing::Contains;

class MetricsAsynchronousForkTest : public MetricsAsynchronousTest {};

TEST_F(MetricsAsynchronousForkTest, AChildInheritsNothingThatIsQueuedAndDeliversItsOwn) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    const Subscription subscription(*m_listener, flagTracing, false);
    std::atomic<int> opened{0};
    m_listener->reaction = [&](const MetricsEvent& event) {
        opened += event.type == MetricsEventType::OpenScope ? 1 : 0;
        std::this_thread::sleep_for(milliseconds{1});
    };
    const CurrentContext context;
    for (int i = 0; i < 30; ++i) {
        Work("parents");
    }

    const bool isWell = SucceedsInChild([&] {
        const int inherited = opened;
        Work("childs");
        const bool isFlushed = Metrics::Flush(patience);
        return isFlushed && opened == inherited + 1;
    });
    FlushAll();

    EXPECT_TRUE(isWell);
    EXPECT_EQ(opened, 30);
}

TEST_F(MetricsAsynchronousForkTest, AChildGetsOnWithItsLifeWhileOtherThreadsWereEmitting) {
    if (tarn::test::hasAddressSanitizer) {
        GTEST_SKIP() << tarn::test::noForkWhileOthersAllocate;
    }
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->reaction = [&](const MetricsEvent& event) {
        opened += event.type == MetricsEventType::OpenScope ? 1 : 0;
        closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
        m_listener->events.clear();
    };
    const CurrentContext context;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> emitters;
    for (int i = 0; i < 2; ++i) {
        emitters.emplace_back([&isOver] {
            const CurrentContext own;
            while (!isOver.load(std::memory_order_relaxed)) {
                Work("query");
            }
        });
    }

    int failures = 0;
    for (int round = 0; round < 30; ++round) {
        const bool isWell = SucceedsInChild([&] {
            const int inherited = opened;
            Work("childs");
            return Metrics::Flush(patience) && opened == inherited + 1 &&
                   Metrics::Shutdown(patience);
        });
        failures += isWell ? 0 : 1;
    }
    isOver.store(true);
    for (std::thread& emitter : emitters) {
        emitter.join();
    }
    FlushAll();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(opened, closed);
}

TEST_F(MetricsAsynchronousForkTest, AConsumerMayForkAndBothSidesGoOn) {
    const Subscription subscription(*m_listener, flagTracing, false);
    std::atomic<pid_t> child{-1};
    m_listener->reaction = [&](const MetricsEvent& event) {
        if (child < 0 && event.type == MetricsEventType::OpenScope) {
            const pid_t forked = fork();
            if (forked == 0) {
                alarm(20);
                _exit(0);
            }
            child = forked;
        }
    };
    const CurrentContext context;

    Work("query");
    FlushAll();

    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(m_listener->Descriptions(), Contains("close query"));
}

}  // namespace
