#include "MetricsAsynchronousTest.h"

#include "AtThreadExit.h"

#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::DeliveryMode;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using Metrics::WhenQueueIsFull;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::moment;
using MetricsTest::smallQueue;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using tarn::test::AnnouncesThread;
using tarn::test::Closes;
using tarn::test::CreatesContext;
using tarn::test::EventContent;
using tarn::test::OnAnotherThread;
using tarn::test::Opens;
using tarn::test::OpensContext;
using tarn::test::PostCloses;
using tarn::test::SendsPairs;
using tarn::test::SendsSupplement;
using tarn::test::SendsValue;
using testing::Contains;
using testing::ElementsAre;

TEST_F(MetricsAsynchronousTest, EventsArriveInOrderOnAThreadOfTheBus) {
    std::thread::id deliverer;
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent&) { deliverer = std::this_thread::get_id(); });
    const CurrentContext context;
    FlushAll();
    m_listener->Clear();

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query", {{"text", "select"}, {u"rows", 3}, {"done", true}, {"x", 0.5}});
        scope.EmitImpl(MetricsEventType::NameValue, "rows", 4);
        scope.MultiEmitImpl(MetricsEventType::SupplementalPairs, "log", {{"step", u"\u00e9"}});
        scope.SetPostScopeCloseEvents(
            {Metrics::MetricsCloseScopeActions::PopRequestContextAttributes});
    }
    FlushAll();

    EXPECT_NE(deliverer, std::this_thread::get_id());
    EXPECT_THAT(
        m_listener->ContentsOf(context.Id()),
        ElementsAre(Opens("query", {{"text", "select"}, {u"rows", 3}, {"done", true}, {"x", 0.5}}),
                    SendsValue("rows", 4),
                    SendsSupplement("log", {{"step", u"\u00e9"}}),
                    Closes("query"),
                    PostCloses("query")));
}

TEST_F(MetricsAsynchronousTest, WhatAScopeSaysAtItsEndArrivesInOrderBeforeTheEnd) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    Scope scope(flagTracing);
    scope.OpenImpl("query");
    const Metrics::PairView figures[] = {{"bytes", 5}, {"calls", 1}};

    scope.Finish({{MetricsEventType::NameValue, "tid", 7},
                  {MetricsEventType::NameValuePairs, "memory", Metrics::PairSpan(figures, 2)}});
    const bool isOpen = scope.IsOpen();
    scope.Finish({{MetricsEventType::NameValue, "late", 1}});
    FlushAll();

    EXPECT_FALSE(isOpen);
    const std::vector<EventContent> all = m_listener->ContentsOf(context.Id());
    const std::vector<EventContent> ofScope(all.size() < 4 ? all.begin() : all.end() - 4,
                                            all.end());
    EXPECT_THAT(ofScope,
                ElementsAre(Opens("query"),
                            SendsValue("tid", 7),
                            SendsPairs("memory", {{"bytes", 5}, {"calls", 1}}),
                            Closes("query")));
}

TEST_F(MetricsAsynchronousTest, MoreAtTheEndOfAScopeThanTheQueueHoldsWaitsForRoom) {
    std::atomic<uint64> arrived{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&arrived](const MetricsEvent& event) {
        arrived += event.type == MetricsEventType::NameValue ? 1 : 0;
    });

    OnAnotherThread([] {
        const CurrentContext context;
        const std::string text(3000, 'x');
        ASSERT_GT(14 * text.size(), 2 * smallQueue);
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        const Scope::FinalEvent value(MetricsEventType::NameValue, "text", text);
        scope.Finish({value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value,
                      value});
    });
    FlushAll();

    EXPECT_EQ(arrived, 14U);
}

TEST_F(MetricsAsynchronousTest, WhatAConsumerKeepsOfAnEventStaysAsItWas) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    m_listener->Clear();

    Scope scope(flagTracing);
    scope.OpenImpl("query");
    for (const char* const text : {"one", "two", "a text that is longer than most", "six"}) {
        scope.EmitImpl(MetricsEventType::NameValue, "text", text);
        scope.EmitImpl(MetricsEventType::NameValue, u"wide", Metrics::MetricsValue(TString(text)));
        FlushAll();
    }

    std::vector<EventContent> values = m_listener->ContentsOf(context.Id());
    values.erase(std::remove_if(values.begin(),
                                values.end(),
                                [](const EventContent& event) {
                                    return event.type != MetricsEventType::NameValue;
                                }),
                 values.end());
    EXPECT_THAT(values,
                ElementsAre(SendsValue("text", "one"),
                            SendsValue(u"wide", u"one"),
                            SendsValue("text", "two"),
                            SendsValue(u"wide", u"two"),
                            SendsValue("text", "a text that is longer than most"),
                            SendsValue(u"wide", u"a text that is longer than most"),
                            SendsValue("text", "six"),
                            SendsValue(u"wide", u"six")));
}

TEST_F(MetricsAsynchronousTest, AnEventIsStampedWhenItIsEmitted) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    const CurrentContext context;

    const int64 before = Metrics::ReadClock().time;
    Work("query");
    const int64 after = Metrics::ReadClock().time;
    std::this_thread::sleep_for(moment);
    m_gate.Open();
    FlushAll();

    ASSERT_GE(m_listener->Count(), 2U);
    EXPECT_GE(m_listener->Events()[m_listener->Count() - 2].time, before);
    EXPECT_LE(m_listener->Last().time, after);
}

TEST_F(MetricsAsynchronousTest, WhatNoQueueTakesAsItIsArrivesAllTheSame) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    const std::string large(100'000, 'x');
    Metrics::MetricsValue odd;
    odd.type = 77;
    Metrics::MetricsValue hollow;
    hollow.type = Metrics::MetricsValue::MV_Utf16String;

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query", {{"text", large}});
        scope.EmitImpl(MetricsEventType::NameValue, "odd", Metrics::MetricsValue(odd));
        scope.EmitImpl(MetricsEventType::NameValue, "hollow", Metrics::MetricsValue(hollow));
        scope.EmitImpl(MetricsEventType::NameValue, "", "");
    }
    FlushAll();

    std::vector<MetricsEvent> ofScope;
    const std::vector<MetricsEvent> all = m_listener->Events();
    std::copy_if(
        all.begin(), all.end(), std::back_inserter(ofScope), [](const MetricsEvent& event) {
            return event.id != 0 && event.flags != 0;
        });
    ASSERT_EQ(ofScope.size(), 5U);
    EXPECT_EQ(*ofScope[0].pairs.at(0).second.utf8, large);
    EXPECT_EQ(ofScope[1].value.type, 77U);
    EXPECT_EQ(ofScope[2].value.type, Metrics::MetricsValue::MV_Utf16String);
    EXPECT_EQ(ofScope[2].value.utf16, nullptr);
    EXPECT_EQ(*ofScope[3].name.utf8, "");
    EXPECT_EQ(*ofScope[3].value.utf8, "");
}

TEST_F(MetricsAsynchronousTest, RecordsOfEverySizeGoRoundTheRing) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    std::vector<std::size_t> sizes;
    {
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        for (std::size_t size = 0; size < 5000; size += 7) {
            scope.EmitImpl(MetricsEventType::NameValue, "text", std::string(size, 'y'));
            sizes.push_back(size);
        }
    }
    FlushAll();

    std::vector<std::size_t> arrived;
    for (const MetricsEvent& event : m_listener->Events()) {
        if (event.type == MetricsEventType::NameValue) {
            arrived.push_back(event.value.utf8->size());
            EXPECT_EQ(event.value.utf8->find_first_not_of('y'), std::string::npos);
        }
    }
    EXPECT_EQ(arrived, sizes);
}

TEST_F(MetricsAsynchronousTest, AnIntegerThatIsTooLargeArrivesAsItsDigits) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    {
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        scope.Emit(MetricsEventType::NameValue, "lent", ~uint64{0});
        scope.EmitImpl(MetricsEventType::NameValue, "given", ~uint64{0});
    }
    FlushAll();

    std::vector<std::string> texts;
    for (const MetricsEvent& event : m_listener->Events()) {
        if (event.type == MetricsEventType::NameValue) {
            texts.push_back(*event.value.utf8);
        }
    }
    EXPECT_THAT(texts, testing::ElementsAre("18446744073709551615", "18446744073709551615"));
}

TEST_F(MetricsAsynchronousTest, WhatAConsumerEmitsArrivesAfterTheEventThatItAnswers) {
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope && *event.name.utf8 == "query") {
            const CurrentContext own;
            Work("answer");
        }
    });
    const CurrentContext context;

    Work("query");
    FlushAll();

    const std::vector<EventContent> all = m_listener->Contents();
    const auto query = std::find(all.begin(), all.end(), Opens("query"));
    ASSERT_NE(query, all.end());
    EXPECT_THAT(std::vector<EventContent>(query + 1, all.end()), Contains(Opens("answer")));
    EXPECT_EQ(all.back(), Closes("query"));
}

TEST_F(MetricsAsynchronousTest, AConsumerThatThrowsIsCountedAndGetsTheNextEvent) {
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            throw std::runtime_error("no");
        }
    });
    const CurrentContext context;
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;

    Work("query");
    FlushAll();

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
    EXPECT_EQ(m_listener->Contents().back(), Closes("query"));
}

TEST_F(MetricsAsynchronousTest, AThreadWhoseQueueIsFullWaitsAndLosesNothing) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = Metrics::GetBusStatistics().waits;
    const uint64 waitedBefore = Metrics::GetBusStatistics().waitedNanoseconds;
    const auto hasWaited = [waitsBefore] {
        return Metrics::GetBusStatistics().waits > waitsBefore;
    };
    // Slower than any emitter, until one had to wait for it.
    m_listener->CallOnEach([hasWaited](const MetricsEvent&) {
        if (!hasWaited()) {
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
    });
    int scopes = 0;
    OnAnotherThread([&] {
        const CurrentContext context;
        for (; scopes < 500 || (!hasWaited() && scopes < 2000); ++scopes) {
            Work("query");
        }
    });
    FlushAll();

    const std::vector<EventContent> all = m_listener->Contents();
    EXPECT_EQ(std::count(all.begin(), all.end(), Opens("query")), scopes);
    EXPECT_EQ(std::count(all.begin(), all.end(), Closes("query")), scopes);
    EXPECT_GT(Metrics::GetBusStatistics().waits, waitsBefore);
    EXPECT_GT(Metrics::GetBusStatistics().waitedNanoseconds, waitedBefore);
    EXPECT_GT(Metrics::GetBusStatistics().highestQueueFill, smallQueue / 2);
}

TEST_F(MetricsAsynchronousTest, FlushReturnsInTimeWhileAConsumerHangs) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();

    const auto begin = std::chrono::steady_clock::now();
    const bool isFlushed = Metrics::Flush(moment);
    const auto took = std::chrono::steady_clock::now() - begin;
    m_gate.Open();

    EXPECT_FALSE(isFlushed);
    EXPECT_GE(took, moment);
    EXPECT_LT(took, timeout);
    EXPECT_TRUE(Metrics::Flush(timeout));
}

TEST_F(MetricsAsynchronousTest, AConsumerCannotWaitForItself) {
    std::optional<bool> isFlushed;
    std::optional<bool> isShutDown;
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent&) {
        isFlushed = Metrics::Flush(timeout);
        isShutDown = Metrics::Shutdown(timeout);
    });
    { const CurrentContext context; }
    FlushAll();

    EXPECT_EQ(isFlushed, false);
    EXPECT_EQ(isShutDown, false);
}

TEST_F(MetricsAsynchronousTest, AfterShutdownEventsAreDeliveredAtOnce) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    Work("before");

    EXPECT_TRUE(Metrics::Shutdown(timeout));
    const std::size_t afterShutdown = m_listener->Count();
    Work("after");

    EXPECT_EQ(m_listener->Count(), afterShutdown + 2);
    EXPECT_THAT(m_listener->ContentsOf(context.Id()),
                ElementsAre(CreatesContext(),
                            OpensContext(),
                            AnnouncesThread(static_cast<uint64>(gettid())),
                            Opens("before"),
                            Closes("before"),
                            Opens("after"),
                            Closes("after")));
}

// A thread that has begun to queue an event before the shutdown may do so after the delivering
// thread has ended. It delivers the event itself then, and starts no other thread.
TEST_F(MetricsAsynchronousTest, AShutdownSucceedsWhileThreadsEmit) {
    constexpr int rounds = 200;
    constexpr int threadCount = 3;
    std::atomic<uint64> closed{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
        m_listener->Clear();
    });
    std::atomic<bool> isOver{false};
    std::atomic<uint64> ended{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            const CurrentContext context;
            while (!isOver) {
                Work("query");
                ++ended;
            }
        });
    }

    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        Choose(WhenQueueIsFull::Wait);
        const uint64 before = ended;
        while (ended < before + 10) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(Metrics::Shutdown(timeout)) << "round " << round;
        const uint64 endedBefore = ended;
        EXPECT_GE(closed, endedBefore) << "round " << round;
    }

    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(closed, ended);
}

TEST_F(MetricsAsynchronousTest, AShutdownThatGivesUpLetsNobodyWaitAndCountsWhatIsLost) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 lostBefore = Metrics::GetBusStatistics().lostEvents;
    HoldConsumer();
    std::thread waiting([] {
        const CurrentContext context;
        for (int i = 0; i < 500; ++i) {
            Work("query");
        }
    });
    std::this_thread::sleep_for(moment);

    EXPECT_FALSE(Metrics::Shutdown(moment));
    waiting.join();
    const CurrentContext context;
    Work("late");

    EXPECT_GT(Metrics::GetBusStatistics().lostEvents, lostBefore + 2);
    m_gate.Open();
    EXPECT_TRUE(Metrics::Shutdown(timeout));
}

TEST_F(MetricsAsynchronousTest, DeliveryBeginsAnewAfterAShutdown) {
    std::thread::id deliverer;
    const Subscription subscription(*m_listener, flagTracing, false);
    EXPECT_TRUE(Metrics::Shutdown(timeout));

    Choose(WhenQueueIsFull::Wait);
    m_listener->CallOnEach([&](const MetricsEvent&) { deliverer = std::this_thread::get_id(); });
    { const CurrentContext context; }
    FlushAll();

    EXPECT_NE(deliverer, std::thread::id());
    EXPECT_NE(deliverer, std::this_thread::get_id());
    EXPECT_EQ(Metrics::GetDelivery().mode, DeliveryMode::Asynchronous);
    EXPECT_EQ(Metrics::GetDelivery().queueBytes, smallQueue);
}

TEST_F(MetricsAsynchronousTest, AConsumerGetsWhatWasEmittedBeforeItIsRemoved) {
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        const CurrentContext context;
        Work("query");
    }

    EXPECT_THAT(m_listener->Contents(), Contains(Closes("query")));
}

TEST_F(MetricsAsynchronousTest, AConsumerGetsNothingThatWasEmittedBeforeItCame) {
    const Subscription first(*m_listener, flagTracing, false);
    const RefCntPtr<MetricsTest::RecordingListener> newcomer = new MetricsTest::RecordingListener;
    const CurrentContext context;
    Work("before");

    const Subscription second(*newcomer, flagTracing, false);
    Work("after");
    FlushAll();

    EXPECT_THAT(newcomer->Contents(), ElementsAre(Opens("after"), Closes("after")));
}

TEST_F(MetricsAsynchronousTest, AConsumerThatHangsIsRemovedOnceItReturns) {
    Choose(WhenQueueIsFull::Wait, moment);
    std::size_t whenRemoved = 0;
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        HoldConsumer();
        OnAnotherThread([] { const CurrentContext context; });
        whenRemoved = 1;  // the one that it hangs in
    }
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(m_listener->Count(), whenRemoved);
}

TEST_F(MetricsAsynchronousTest, ThreadsThatComeAndGoShareTheirQueues) {
    const Subscription subscription(*m_listener, flagTracing, false);

    for (int i = 0; i < 300; ++i) {
        OnAnotherThread([] {
            const CurrentContext context;
            Work("query");
        });
    }
    FlushAll();

    const std::vector<EventContent> all = m_listener->Contents();
    EXPECT_EQ(std::count(all.begin(), all.end(), Closes("query")), 300);
}

TEST_F(MetricsAsynchronousTest, WhatAThreadEmitsAtItsVeryEndArrives) {
    const Subscription subscription(*m_listener, flagTracing, false);
    OnAnotherThread([] {
        // Made first, it goes last: when the thread's queue and contexts are gone already.
        thread_local tarn::test::AtThreadExit atEnd;
        const auto context = std::make_shared<CurrentContext>();
        auto scope = std::make_shared<Scope>(flagTracing);
        scope->OpenImpl("query");
        context->Get().DetachFromThread();
        atEnd.action = [context, last = std::move(scope)]() mutable { last.reset(); };
    });
    FlushAll();

    EXPECT_THAT(m_listener->Contents(), Contains(Closes("query")));
}

}  // namespace
