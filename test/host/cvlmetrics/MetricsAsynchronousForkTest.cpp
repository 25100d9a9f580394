#include "ChildProcess.h"
#include "MetricsAsynchronousTest.h"
#include "Sanitizers.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlcoreplatform/host/Silence.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Statistics.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using std::chrono::milliseconds;
using tarn::test::Closes;
using tarn::test::EventContent;
using tarn::test::IsOfType;
using tarn::test::LogCapture;
using tarn::test::Opens;
using tarn::test::SendsValue;
using tarn::test::SucceedsInChild;
using testing::Contains;

class MetricsAsynchronousForkTest : public MetricsAsynchronousTest {};

TEST_F(MetricsAsynchronousForkTest, AChildInheritsNothingThatIsQueuedAndDeliversItsOwn) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    std::atomic<int> opened{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        opened += event.type == MetricsEventType::OpenScope ? 1 : 0;
        std::this_thread::sleep_for(milliseconds{1});
    });
    const CurrentContext context;
    for (int i = 0; i < 30; ++i) {
        Work("parents");
    }

    const bool isWell = SucceedsInChild([&] {
        const int inherited = opened;
        Work("childs");
        const bool isFlushed = Metrics::Flush(timeout);
        return isFlushed && opened == inherited + 1;
    });
    FlushAll();

    EXPECT_TRUE(isWell);
    EXPECT_EQ(opened, 30);
}

TEST_F(MetricsAsynchronousForkTest, AChildGetsOnWithItsLifeWhileOtherThreadsWereEmitting) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        opened += event.type == MetricsEventType::OpenScope ? 1 : 0;
        closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
        m_listener->Clear();
    });
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
            return Metrics::Flush(timeout) && opened == inherited + 1 && Metrics::Shutdown(timeout);
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
    std::atomic<pid_t> child{-1};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (child < 0 && event.type == MetricsEventType::OpenScope) {
            child = tarn::test::StartChild([] {});
        }
    });
    const CurrentContext context;

    Work("query");
    FlushAll();

    EXPECT_EQ(tarn::test::ExitCodeOf(child), 0);
    EXPECT_THAT(m_listener->Contents(), Contains(Closes("query")));
}

TEST_F(MetricsAsynchronousForkTest, WhatIsLeftOfAnEndIsNotLoggedByAChildThatIsForkedInItsMiddle) {
    std::atomic<pid_t> child{-1};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (child < 0 && event.type == MetricsEventType::NameValue) {
            const pid_t forked = tarn::test::Fork();
            if (forked == 0) {
                alarm(tarn::test::childTimeoutInSeconds);
            }
            child = forked;
        } else if (child == 0) {
            _exit(TLog::Silence::IsOnThisThread() ? EXIT_SUCCESS : EXIT_FAILURE);
        }
    });
    const CurrentContext context;

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        scope.Finish({{MetricsEventType::NameValue, "tid", 7}});
    }
    FlushAll();
    m_listener->CallOnEach(nullptr);

    EXPECT_EQ(tarn::test::ExitCodeOf(child), 0);
    EXPECT_THAT(m_listener->Contents(), Contains(Closes("query")));
}

TEST_F(MetricsAsynchronousForkTest, AForkDoesNotWaitUntilASlowListenerHasHeardAll) {
    constexpr int threads = 12;
    constexpr int works = 30;  // as many as a queue has room for
    std::atomic<bool> isSlow{true};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent&) {
        if (isSlow) {
            std::this_thread::sleep_for(milliseconds{1});
        }
    });
    // Each keeps its queue until the fork is over.
    std::atomic<int> haveEmitted{0};
    std::vector<std::thread> emitters;
    for (int i = 0; i < threads; ++i) {
        emitters.emplace_back([&] {
            const CurrentContext context;
            for (int work = 0; work < works; ++work) {
                Work("queued");
            }
            ++haveEmitted;
            while (isSlow) {
                std::this_thread::sleep_for(milliseconds{1});
            }
        });
    }
    while (haveEmitted != threads) {
        std::this_thread::yield();
    }

    const uint64 before = Metrics::GetBusStatistics().deliveredEvents;
    const bool isInTime = SucceedsInChild([before] {
        return Metrics::GetBusStatistics().deliveredEvents - before < threads * works;
    });
    isSlow = false;
    for (std::thread& emitter : emitters) {
        emitter.join();
    }
    FlushAll();

    EXPECT_TRUE(isInTime);
    EXPECT_GE(m_listener->Contents().size(), std::size_t{2} * threads * works);
}

std::string WhatHappens(const MetricsEvent& event) {
    switch (event.type) {
        case MetricsEventType::OpenScope:
            return "opens " + *event.name.utf8;
        case MetricsEventType::CloseScope:
            return "closes " + *event.name.utf8;
        default:
            return "something else";
    }
}

TEST_F(MetricsAsynchronousForkTest, AChildKnowsWhatIsOpenOnItsThreadAndDoesNotSayItAgain) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    const LogCapture log;
    std::atomic<bool> isSlow{true};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        TLog::Logger::Get().LogMessage(TLog::Warn, TString(WhatHappens(event)));
        if (isSlow) {
            std::this_thread::sleep_for(milliseconds{10});
        }
    });
    const CurrentContext context;
    Metrics::Scope begun(flagTracing);
    begun.OpenImpl("begun");
    FlushAll();
    tarn::test::OnAnotherThread([] {
        const CurrentContext others;
        for (int i = 0; i < 25; ++i) {
            Work("others");
        }
    });
    const std::string large(5000, 'y');
    {
        Metrics::Scope ended(flagTracing);
        ended.OpenImpl("ended");
        ended.EmitImpl(MetricsEventType::NameValue, "large", large);
    }
    begun.Finish({});
    Metrics::Scope outer(flagTracing);
    outer.OpenImpl("outer");
    outer.EmitImpl(MetricsEventType::NameValue, "large", large);

    const bool isWell = SucceedsInChild([&] {
        isSlow = false;
        const std::size_t known = m_listener->Count();
        const std::size_t said = log->Messages().size();
        Work("childs");
        if (!Metrics::Flush(timeout)) {
            return false;
        }
        std::vector<EventContent> heard = m_listener->Contents();
        heard.erase(heard.begin(), heard.begin() + static_cast<std::ptrdiff_t>(known));
        std::vector<std::string> told = log->MessageTexts();
        told.erase(told.begin(), told.begin() + static_cast<std::ptrdiff_t>(said));
        EXPECT_THAT(heard,
                    testing::ElementsAre(Closes("begun"),
                                         Opens("outer"),
                                         SendsValue("large", large),
                                         IsOfType(MetricsEventType::Attribute),
                                         Opens("childs"),
                                         Closes("childs")));
        EXPECT_THAT(told, testing::ElementsAre("something else", "opens childs", "closes childs"));
        return !testing::Test::HasFailure();
    });
    isSlow = false;
    FlushAll();
    m_listener->CallOnEach({});

    EXPECT_TRUE(isWell);
    EXPECT_THAT(log->MessageTexts(), Contains("opens outer").Times(1));
    EXPECT_THAT(log->MessageTexts(), Contains("closes ended").Times(1));
}

TEST_F(MetricsAsynchronousForkTest, AForkDoesNotWaitForAListenerThatHangsAndTheChildMayAddAnother) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    const CurrentContext context;
    Work("hangs");

    const bool isWell = SucceedsInChild([] {
        const bool isAlone = Metrics::MetricsManager::GetInstance().GetConsumerCount() == 0 &&
                             !Metrics::TestBits(flagTracing);
        Work("nobody hears it");
        const CurrentContext own;
        const RefCntPtr<MetricsTest::RecordingListener> another =
            new MetricsTest::RecordingListener;
        const Subscription childs(*another, flagTracing, false);
        Work("childs");
        return isAlone && Metrics::Flush(timeout) &&
               another->Contents() == std::vector<EventContent>{Opens("childs"), Closes("childs")};
    });
    m_gate.Open();
    FlushAll();

    EXPECT_TRUE(isWell);
    EXPECT_THAT(m_listener->Contents(), Contains(Closes("hangs")));
}

TEST_F(MetricsAsynchronousForkTest, AForkDoesNotWaitForALogThatHangsAndTheChildMaySetAnother) {
    class HungLog : public TLog::LogBackEnd {
    public:
        explicit HungLog(MetricsTest::Gate& gate) : m_gate(gate) {}

        void Write(TLog::Severity /*severity*/, const TLog::Event& /*event*/) override {
            m_gate.Pass();
        }

        void WriteMessage(TLog::Severity /*severity*/, const TString& /*text*/) override {
            m_gate.Pass();
        }

    private:
        MetricsTest::Gate& m_gate;
    };

    m_gate.Close();
    const auto former = TLog::ReplaceBackEnd(std::make_shared<HungLog>(m_gate));
    std::thread logs([] { TLog::Logger::Get().LogMessage(TLog::Warn, u"hangs"); });
    m_gate.AwaitSomeoneBefore();

    const bool isWell = SucceedsInChild([&] {
        const bool isOff = !TLog::Logger::Get().IsEnabled(TLog::Fatal);
        TLog::Logger::Get().LogMessage(TLog::Warn, u"dropped");
        TLog::ReplaceBackEnd(former);
        return isOff && TLog::Logger::Get().IsEnabled(TLog::Warn);
    });
    m_gate.Open();
    logs.join();
    TLog::ReplaceBackEnd(former);

    EXPECT_TRUE(isWell);
}

TEST_F(MetricsAsynchronousForkTest, AChildDoesNotTellWhatItsParentHasLost) {
    const Subscription subscription(*m_listener, flagTracing, false);
    Choose(Metrics::WhenQueueIsFull::Refuse);
    HoldConsumer();
    const CurrentContext context;
    while (Metrics::GetBusStatistics().refusedScopes == 0) {
        Work("queued or refused");
    }

    EXPECT_TRUE(SucceedsInChild([] {
        const Metrics::BusStatistics statistics = Metrics::GetBusStatistics();
        return statistics.refusedScopes == 0 && statistics.lostEvents == 0;
    }));
    m_gate.Open();
    FlushAll();

    EXPECT_GE(Metrics::GetBusStatistics().refusedScopes, 1u);
}

}  // namespace
