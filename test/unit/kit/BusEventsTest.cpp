// That what a test expects of the bus tells right from wrong.
#include "BusEvents.h"

#include "CountingListener.h"
#include "RecordingListener.h"
#include "TarnTest.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::MetricsValue;
using Metrics::NameValueList;
using testing::ElementsAre;
using testing::Not;
using testing::PrintToString;
using testing::SizeIs;

MetricsValue OfKind(uint32 kind) {
    MetricsValue value;
    value.type = kind;
    return value;
}

MetricsEvent EventOf(MetricsEventType type, uint64 contextId = 0) {
    MetricsEvent event;
    event.type = type;
    event.contextId = contextId;
    return event;
}

// ---- Values

TEST(BusEventsTest, EqualValuesAreEqual) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const NameValueList pairs{
        {7, 7}, {true, true}, {1.5, 1.5}, {nan, nan}, {"narrow", "narrow"}, {u"wide", L"wide"}};

    for (const auto& [value, same] : pairs) {
        EXPECT_EQ(value, same);
    }
    EXPECT_EQ(OfKind(9), OfKind(9));
    EXPECT_EQ(OfKind(MetricsValue::MV_Utf8String), OfKind(MetricsValue::MV_Utf8String));
}

TEST(BusEventsTest, ValuesOfDifferentKindsAreNeverEqual) {
    const std::vector<MetricsValue> values{1, true, 1.0, "1", u"1", OfKind(9), OfKind(10)};

    for (const MetricsValue& a : values) {
        for (const MetricsValue& b : values) {
            EXPECT_EQ(a == b, &a == &b) << PrintToString(a) << " and " << PrintToString(b);
        }
    }
}

TEST(BusEventsTest, DifferentValuesOfOneKindAreNotEqual) {
    using namespace std::string_literals;
    const NameValueList pairs{{7, 8},
                              {true, false},
                              {0.0, -0.0},
                              {1.5, std::nextafter(1.5, 2.0)},
                              {"a", "b"},
                              {"a", "a\0"s},
                              {"\xED\xA0\x80", "\xEF\xBF\xBD"},
                              {"a\\nb", "a\nb"},
                              {u"a\"", u"a"},
                              {"", OfKind(MetricsValue::MV_Utf8String)},
                              {u"", OfKind(MetricsValue::MV_Utf16String)},
                              {TString(std::u16string_view(u"\xD800", 1)), u"\uFFFD"}};

    for (const auto& [a, b] : pairs) {
        EXPECT_FALSE(a == b) << PrintToString(a) << " and " << PrintToString(b);
    }
}

TEST(BusEventsTest, ThePrintedValueShowsItsKind) {
    EXPECT_EQ(PrintToString(MetricsValue(-7)), "-7");
    EXPECT_EQ(PrintToString(MetricsValue(true)), "true");
    EXPECT_EQ(PrintToString(MetricsValue(7.0)), "7.0");
    EXPECT_EQ(PrintToString(MetricsValue("a\"\x80\n")), R"("a\"\x80\x0A")");
    EXPECT_EQ(PrintToString(MetricsValue(u"a\u00E9")), R"(L"a\u00E9")");
    EXPECT_EQ(PrintToString(OfKind(9)), "kind 9");
}

// ---- Events

TEST(BusEventsTest, EveryKindOfEventIsTakenForItselfAndForNoOther) {
    const NameValueList pairs{{"a", 1}};
    const std::vector<EventContent> expectations{CreatesContext(),
                                                 OpensContext(),
                                                 ClosesContext(),
                                                 Opens("name", pairs),
                                                 Closes("name"),
                                                 SendsValue("name", 3),
                                                 SendsContextValue("name", 3),
                                                 SendsPairs("name", pairs),
                                                 SendsContextPairs("name", pairs),
                                                 SendsSupplement("name", pairs),
                                                 PostCloses("name", 3)};

    for (std::size_t i = 0; i < expectations.size(); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(expectations[i].type), i + 2);
        EXPECT_THAT(expectations[i], IsOfType(expectations[i].type));
        for (std::size_t k = 0; k < expectations.size(); ++k) {
            EXPECT_EQ(expectations[i] == expectations[k], i == k)
                << PrintToString(expectations[i]) << " and " << PrintToString(expectations[k]);
        }
    }
}

TEST(BusEventsTest, WhatAnEventCarriesCounts) {
    const EventContent content = Opens("name", {{"a", 1}, {"b", 2}});

    EXPECT_THAT(content, Not(Opens(u"name", {{"a", 1}, {"b", 2}})));
    EXPECT_THAT(content, Not(Opens("other", {{"a", 1}, {"b", 2}})));
    EXPECT_THAT(content, Not(Opens("name", {{"a", 1}})));
    EXPECT_THAT(content, Not(Opens("name", {{"b", 2}, {"a", 1}})));
    EXPECT_THAT(content, Not(Opens("name", {{"a", 1}, {"b", 2.0}})));
    EXPECT_THAT(SendsValue("name", 1), Not(SendsValue("name", 2)));
    EXPECT_THAT(Opens("name"), Not(IsOfType(MetricsEventType::CloseScope)));
}

TEST(BusEventsTest, TheContentOfAnEventLeavesOutWhereAndWhenItHappened) {
    MetricsEvent event = EventOf(MetricsEventType::NameValue, 3);
    event.id = 4;
    event.flags = 5;
    event.time = 6;
    event.name = "rows";
    event.value = 7;

    EXPECT_EQ(ContentOf(event), SendsValue("rows", 7));
    EXPECT_EQ(PrintToString(ContentOf(event)), R"(NameValue "rows" = 7)");
}

TEST(BusEventsTest, OpeningAndClosingAreToldApartByKindAndNarrowName) {
    MetricsEvent event = EventOf(MetricsEventType::OpenScope);
    event.name = "load";

    EXPECT_TRUE(IsOpeningOf(event, "load"));
    EXPECT_FALSE(IsOpeningOf(event, "other"));
    EXPECT_FALSE(IsClosingOf(event, "load"));
    event.name = u"load";
    EXPECT_FALSE(IsOpeningOf(event, "load"));
}

// ---- Listeners

TEST(RecordingListenerTest, TheEventsOfAContextIncludeItsOwn) {
    const RefCntPtr<RecordingListener> listener = new RecordingListener;
    MetricsEvent opening = EventOf(MetricsEventType::OpenContext, 8);
    opening.id = 7;
    listener->OnMetricsEvent(opening);
    listener->OnMetricsEvent(EventOf(MetricsEventType::CloseScope, 7));
    listener->OnMetricsEvent(EventOf(MetricsEventType::OpenScope, 8));

    EXPECT_THAT(listener->ContentsOf(7),
                ElementsAre(OpensContext(), IsOfType(MetricsEventType::CloseScope)));
    EXPECT_THAT(listener->ContentsOf(8), ElementsAre(IsOfType(MetricsEventType::OpenScope)));
    EXPECT_THAT(listener->Contents(), SizeIs(3));
}

TEST(RecordingListenerTest, AskingForAnEventThatWasNotDeliveredFailsTheTest) {
    static RefCntPtr<RecordingListener> listener;
    listener = new RecordingListener;

    EXPECT_NONFATAL_FAILURE(listener->First(MetricsEventType::OpenScope), "no event of type 5");
    EXPECT_NONFATAL_FAILURE(listener->Last(), "no event was delivered");

    listener = nullptr;
}

TEST(RecordingListenerTest, ACallWithinACallFailsTheTest) {
    static RefCntPtr<RecordingListener> listener;
    listener = new RecordingListener;
    listener->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            listener->OnMetricsEvent(EventOf(MetricsEventType::CloseScope));
        }
    });

    EXPECT_NONFATAL_FAILURE(listener->OnMetricsEvent(EventOf(MetricsEventType::OpenScope)),
                            "while it was being called");

    listener->OnMetricsEvent(EventOf(MetricsEventType::CloseScope));
    EXPECT_EQ(listener->Count(), 3U);
    EXPECT_EQ(listener->Count(MetricsEventType::CloseScope), 2U);
    listener = nullptr;
}

TEST(CountingListenerTest, KindsAreCountedApartAndUnknownOnesTogether) {
    const RefCntPtr<CountingListener> listener = new CountingListener;
    for (const uint32 type : {5U, 5U, 12U, 13U, 4000000000U}) {
        listener->OnMetricsEvent(EventOf(static_cast<MetricsEventType>(type)));
    }

    EXPECT_EQ(listener->Count(), 5);
    EXPECT_EQ(listener->Count(MetricsEventType::OpenScope), 2);
    EXPECT_EQ(listener->Count(MetricsEventType::PostCloseScope), 1);
    EXPECT_EQ(listener->Count(MetricsEventType::CloseScope), 0);
}

}  // namespace
}  // namespace tarn::test
