// Listeners that read events where they lie: they hear what all others hear.
#include "MetricsAsynchronousTest.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/ValueView.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::DeliveryMode;
using Metrics::EventView;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::PairView;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::RecordingListener;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::CreatesContext;
using tarn::test::Opens;
using tarn::test::SendsPairs;
using tarn::test::SendsValue;
using testing::ElementsAre;

/// Records what it reads.
class Reader : public RecordingListener, public Metrics::ILentListener {
public:
    void OnLentEvent(const EventView& event) override {
        ++lent;
        MetricsEvent made;
        made.id = event.id;
        made.contextId = event.contextId;
        made.flags = event.flags;
        made.time = event.time;
        made.wallSeconds = event.wallSeconds;
        made.wallMicros = event.wallMicros;
        made.type = event.type;
        made.name = event.name.ToValue();
        made.value = event.value.ToValue();
        made.pairs = event.pairs.ToList();
        OnMetricsEvent(made);
    }

    std::atomic<std::size_t> lent{0};
};

/// Takes so many events of an end at once.
class EndReader : public Reader {
public:
    void OnLentEnd(Metrics::EndEvents& events) override {
        ++calls;
        for (std::size_t left = atOnce; left != 0 && !events.AreOver(); --left) {
            OnLentEvent(events.Take());
        }
    }

    std::size_t atOnce = std::numeric_limits<std::size_t>::max();
    std::atomic<std::size_t> calls{0};
};

class MetricsLentEventTest : public MetricsTest::MetricsBusTest,
                             public testing::WithParamInterface<DeliveryMode> {
protected:
    MetricsLentEventTest() { Metrics::SetDelivery({.mode = GetParam()}); }

    ~MetricsLentEventTest() override {
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        Metrics::SetDelivery({});
    }

    static void FlushAll() { ASSERT_TRUE(Metrics::Flush(timeout)); }

    /// One scope that says all that can be said, in each way.
    static void SayEverything() {
        const TString shared(u"shared by all of its copies");
        const TString none;
        const Metrics::MetricsValue value(shared);
        const std::string withNul("before\0after", 12);
        const std::vector<PairView> pairs{{"narrow", "text"},
                                          {u"utf16", u"\u00e9\U0001F600"},
                                          {L"wide", L"of the platform"},
                                          {"string", withNul},
                                          {"shared", shared},
                                          {"none", none},
                                          {"digits", std::numeric_limits<uint64>::max()},
                                          {"integer", std::numeric_limits<int64>::min()},
                                          {"small", -3},
                                          {"yes", true},
                                          {"no", false},
                                          {"real", -0.0},
                                          {"value", value}};
        const PairView figures[] = {{"bytes", 5}};
        Scope scope(flagTracing);
        scope.Open(u"everything", Metrics::PairSpan(pairs.data(), pairs.size()));
        scope.Emit(MetricsEventType::NameValue, shared, withNul);
        scope.EmitImpl(MetricsEventType::NameValue, "given", 0.25);
        scope.MultiEmitImpl(MetricsEventType::SupplementalPairs, "log", {{"step", u"\u00e9"}});
        scope.MultiEmitImpl(MetricsEventType::NameValuePairs,
                            "more than a record holds",
                            {{"text", std::string(10'000, 'x')}, {"after", 1}});
        Metrics::AttributeImpl("user", "somebody", flagTracing);
        Metrics::MultiAttributeImpl("list", {{"tenant", "blue"}}, flagTracing);
        scope.SetPostScopeCloseEvents(
            {Metrics::MetricsCloseScopeActions::PopRequestContextAttributes});
        scope.Finish(
            {{MetricsEventType::NameValue, "tid", 7},
             {MetricsEventType::NameValuePairs, "figures", Metrics::PairSpan(figures, 1)}});
    }

    /// A scope that says three things at its end.
    static void SayAnEnd() {
        const PairView figures[] = {{"bytes", 5}};
        Scope scope(flagTracing);
        scope.Open("query", {});
        scope.Finish(
            {{MetricsEventType::NameValue, "tid", 7},
             {MetricsEventType::NameValuePairs, "figures", Metrics::PairSpan(figures, 1)}});
    }

    RefCntPtr<Reader> m_reader = new Reader;
    RefCntPtr<EndReader> m_endReader = new EndReader;
};

TEST_P(MetricsLentEventTest, WhoReadsEndsHearsWhatTheOthersHear) {
    const auto hear = [](Metrics::IMetricsListener& listener) {
        const Subscription subscription(listener, flagTracing, false);
        {
            const CurrentContext context;
            SayEverything();
        }
        FlushAll();
    };
    hear(*m_listener);
    std::size_t calls = 0;
    for (const std::size_t atOnce : {1U, 2U, 3U, 1U, 2U, 3U, 1U, 2U, 3U, 1U, 2U, 3U}) {
        SCOPED_TRACE(atOnce);
        m_endReader->Clear();
        m_endReader->atOnce = atOnce;
        m_endReader->calls = 0;
        const uint64 before = Metrics::GetBusStatistics().deliveredEvents;

        hear(*m_endReader);

        EXPECT_EQ(m_endReader->Contents(), m_listener->Contents());
        EXPECT_EQ(Metrics::GetBusStatistics().deliveredEvents - before, m_endReader->Count());
        // At the end of a ring an end is queued event by event, all of it or what comes first.
        EXPECT_LE(m_endReader->calls.load(), (3 + atOnce - 1) / atOnce);
        calls += m_endReader->calls;
    }
    EXPECT_GT(calls, 0U);
}

TEST_P(MetricsLentEventTest, WhoReadsEndsHearsThemOneByOneBesideOthers) {
    const RefCntPtr<EndReader> otherReader = new EndReader;
    for (RecordingListener* const other :
         {m_listener.Get(), static_cast<RecordingListener*>(otherReader.Get())}) {
        const Subscription subscription(*m_endReader, flagTracing, false);
        const Subscription beside(*other, flagTracing, false);
        const CurrentContext context;
        FlushAll();
        m_endReader->Clear();
        other->Clear();
        std::vector<std::size_t> heardByTheOther;
        m_endReader->CallOnEach(
            [&](const MetricsEvent&) { heardByTheOther.push_back(other->Count()); });

        SayAnEnd();
        FlushAll();
        m_endReader->CallOnEach(nullptr);

        EXPECT_THAT(heardByTheOther, ElementsAre(0U, 1U, 2U, 3U));
        EXPECT_EQ(m_endReader->calls, 0U);
        EXPECT_EQ(m_endReader->Contents(), other->Contents());
    }
}

TEST_P(MetricsLentEventTest, WhatFailsInTheMiddleOfAnEndCostsThatEventOnly) {
    const Subscription subscription(*m_endReader, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    m_endReader->Clear();
    m_endReader->CallOnEach([](const MetricsEvent& event) {
        if (event.type != MetricsEventType::OpenScope) {
            throw std::runtime_error("at each event of the end");
        }
    });
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;

    SayAnEnd();
    FlushAll();
    m_endReader->CallOnEach(nullptr);

    EXPECT_THAT(m_endReader->Contents(),
                ElementsAre(Opens("query"),
                            SendsValue("tid", 7),
                            SendsPairs("figures", {{"bytes", 5}}),
                            Closes("query")));
    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions - before, 3U);
}

TEST_P(MetricsLentEventTest, WhatAReaderLeavesOfAnEndGoesToWhoIsThereThen) {
    const Subscription subscription(*m_endReader, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    m_endReader->Clear();
    m_endReader->atOnce = 1;
    m_endReader->CallOnEach([this](const MetricsEvent& event) {
        if (event.type == MetricsEventType::NameValue) {
            m_bus.AddConsumer(m_listener, flagTracing, false);
            m_bus.RemoveConsumer(RefCntPtr<Metrics::IMetricsListener>(m_endReader.Get()));
        }
    });

    SayAnEnd();
    FlushAll();
    m_endReader->CallOnEach(nullptr);
    m_bus.RemoveConsumer(m_listener);

    EXPECT_THAT(m_endReader->Contents(), ElementsAre(Opens("query"), SendsValue("tid", 7)));
    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(SendsPairs("figures", {{"bytes", 5}}), Closes("query")));
}

TEST_P(MetricsLentEventTest, AReaderThatTakesNothingOfAnEndMissesIt) {
    const Subscription subscription(*m_endReader, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    m_endReader->Clear();
    m_endReader->atOnce = 0;

    constexpr std::size_t ends = 200;
    for (std::size_t i = 0; i < ends; ++i) {
        SayAnEnd();
    }
    FlushAll();

    // In the last 4 KiB of a ring, which may be half of a small one, an end is queued event by
    // event.
    const std::size_t missed = ends - m_endReader->Count(MetricsEventType::CloseScope);
    EXPECT_GE(missed, ends / 10);
    EXPECT_GE(m_endReader->calls, missed);
    EXPECT_LE(m_endReader->calls, 3 * missed);
    EXPECT_EQ(m_endReader->Count(MetricsEventType::OpenScope), ends);
}

TEST_P(MetricsLentEventTest, AnEndThatSaysMoreThanARecordHoldsIsHeardInWhole) {
    const Subscription subscription(*m_endReader, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    for (const bool isLong : {true, false}) {
        SCOPED_TRACE(isLong);
        m_endReader->Clear();
        const std::string text(isLong ? 10'000 : 1, 'x');
        {
            Scope scope(flagTracing);
            scope.Open("query", {});
            const Scope::FinalEvent say(MetricsEventType::NameValue, "text", text);
            scope.Finish({say, say, say, say, say, say, say, say, say});
        }
        FlushAll();

        const auto says = SendsValue("text", text);
        EXPECT_THAT(m_endReader->Contents(),
                    ElementsAre(Opens("query"),
                                says,
                                says,
                                says,
                                says,
                                says,
                                says,
                                says,
                                says,
                                says,
                                Closes("query")));
    }
}

TEST_P(MetricsLentEventTest, WhoReadsEventsHearsWhatTheOthersHear) {
    for (const bool isReaderFirst : {true, false}) {
        SCOPED_TRACE(isReaderFirst);
        m_reader->Clear();
        m_listener->Clear();
        Metrics::IMetricsListener& first =
            isReaderFirst ? static_cast<Metrics::IMetricsListener&>(*m_reader) : *m_listener;
        Metrics::IMetricsListener& second =
            isReaderFirst ? static_cast<Metrics::IMetricsListener&>(*m_listener) : *m_reader;
        const Subscription one(first, flagTracing, false);
        const Subscription other(second, flagTracing, false);

        {
            const CurrentContext context;
            SayEverything();
        }
        FlushAll();

        EXPECT_EQ(m_reader->Contents(), m_listener->Contents());
        const std::vector<MetricsEvent> read = m_reader->Events();
        const std::vector<MetricsEvent> heard = m_listener->Events();
        ASSERT_EQ(read.size(), heard.size());
        ASSERT_GE(read.size(), 14U);
        for (std::size_t i = 0; i < read.size(); ++i) {
            EXPECT_EQ(read[i].id, heard[i].id);
            EXPECT_EQ(read[i].contextId, heard[i].contextId);
            EXPECT_EQ(read[i].flags, heard[i].flags);
            EXPECT_EQ(read[i].time, heard[i].time);
            EXPECT_EQ(read[i].wallSeconds, heard[i].wallSeconds);
            EXPECT_EQ(read[i].wallMicros, heard[i].wallMicros);
        }
    }
}

TEST_P(MetricsLentEventTest, NothingIsMadeOfEventsThatAreRead) {
    const Subscription subscription(*m_reader, flagTracing, false);
    const CurrentContext context;

    Work("query");
    FlushAll();

    EXPECT_EQ(m_reader->lent, m_reader->Count());
    EXPECT_EQ(m_reader->Count(MetricsEventType::OpenScope), 1U);
}

TEST_P(MetricsLentEventTest, AListenerThatAReaderAddsHearsFromTheNextEventOn) {
    const Subscription subscription(*m_reader, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    m_reader->CallOnEach([this](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            m_bus.AddConsumer(m_listener, flagTracing, false);
        }
    });

    Work("query");
    FlushAll();
    m_reader->CallOnEach(nullptr);
    m_bus.RemoveConsumer(m_listener);

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Closes("query")));
}

TEST_P(MetricsLentEventTest, WhatAReaderEmitsComesAfterTheEventThatItReads) {
    const Subscription subscription(*m_reader, flagTracing, false);
    const CurrentContext context;
    FlushAll();
    m_reader->Clear();
    m_reader->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            Metrics::Context::Create(true);
        }
    });

    Work("query");
    FlushAll();
    m_reader->CallOnEach(nullptr);

    EXPECT_THAT(m_reader->Contents(),
                ElementsAre(Opens("query"), CreatesContext(), Closes("query")));
}

INSTANTIATE_TEST_SUITE_P(Deliveries,
                         MetricsLentEventTest,
                         testing::Values(DeliveryMode::Synchronous, DeliveryMode::Asynchronous),
                         [](const auto& instance) {
                             return std::string(instance.param == DeliveryMode::Synchronous
                                                    ? "Synchronous"
                                                    : "Asynchronous");
                         });

}  // namespace
