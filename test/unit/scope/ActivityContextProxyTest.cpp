#include "ActivityContextProxyTest.h"

#include "AllocationCounter.h"
#include "Matchers.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <new>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Attributes = ActivityContextProxy::Attributes;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

// ---- Beginning and end.

TEST_F(ActivityContextProxyTest, AnActivityLastsFromConstructionToDestruction) {
    {
        const ActivityContextProxy proxy("job", {}, {});
        EXPECT_THAT(Sent(), ElementsAre(OpensJob()));
    }

    EXPECT_THAT(Sent(), ElementsAre(ThreadIdEvent(), ClosesJob()));
}

TEST_F(ActivityContextProxyTest, ClosingEndsTheActivityOnce) {
    {
        ActivityContextProxy proxy("job", {}, {});
        Sent();

        proxy.Close();
        EXPECT_THAT(Sent(), ElementsAre(ThreadIdEvent(), ClosesJob()));
        proxy.Close();
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ActivityContextProxyTest, AttributesStandInTheOpening) {
    const ActivityContextProxy proxy("job", {{u"path", u"/tmp"}, {u"mode", u"fast"}}, {});

    EXPECT_THAT(Sent(), ElementsAre(Opens("job", {{u"mode", u"fast"}, {u"path", u"/tmp"}})));
}

TEST_F(ActivityContextProxyTest, ContextAttributesPrecedeTheOpeningAndGoWithTheScope) {
    { const ActivityContextProxy proxy("job", {}, {{u"user", u"ann"}, {u"team", u"red"}}); }

    EXPECT_THAT(Sent(),
                ElementsAre(SendsContextPairs(u"mctx", {{u"team", u"red"}, {u"user", u"ann"}}),
                            OpensJob(),
                            ThreadIdEvent(),
                            ClosesJob(),
                            PopsLayer()));
}

TEST_F(ActivityContextProxyTest, TheScopeIsUntracked) {
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    corvala::cputime::SetCpuTrackingEnabled(true);

    { const ActivityContextProxy proxy("job", {}, {}); }

    EXPECT_THAT(m_events->Events(),
                Each(Field(&Metrics::MetricsEvent::flags, (uint64{1} << 53) | (uint64{1} << 54))));
    EXPECT_THAT(Sent(), ElementsAre(OpensJob(), ThreadIdEvent(), ClosesJob()));
}

TEST_F(ForegroundProxyTest, AnAdoptedScopeIsUntrackedToo) {
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);

    { const ActivityContextProxy proxy("job", {}, AllSix()); }

    EXPECT_THAT(m_events->Events(),
                Each(Field(&Metrics::MetricsEvent::flags, (uint64{1} << 53) | (uint64{1} << 54))));
    EXPECT_EQ(m_events->Count(MetricsEventType::NameValuePairs), 0U);
}

TEST_F(ActivityContextProxyTest, TheNameIsUtf8AndEndsAtItsFirstNul) {
    using namespace std::string_literals;

    const ActivityContextProxy umlaut("z\xC3\xA4hlen", {}, {});
    const ActivityContextProxy cut("job\0tail"s, {}, {});
    const ActivityContextProxy empty("", {}, {});

    EXPECT_THAT(Sent(), ElementsAre(Opens("z\xC3\xA4hlen"), OpensJob(), Opens("")));
}

TEST_F(ActivityContextProxyTest, AttributesAreOrderedByTheirCodeUnits) {
    const Attributes attributes{{u"b", u"1"},
                                {u"\uFB00", u"2"},
                                {u"\U0001F600", u"3"},
                                {u"B", u"4"},
                                {u"ab", u"5"},
                                {u"\u00E9", u"6"},
                                {u"", u"7"},
                                {u"a", u"8"}};

    const ActivityContextProxy proxy("job", attributes, attributes);

    const NameValueList ordered{{u"", u"7"},
                                {u"B", u"4"},
                                {u"a", u"8"},
                                {u"ab", u"5"},
                                {u"b", u"1"},
                                {u"\u00E9", u"6"},
                                {u"\U0001F600", u"3"},
                                {u"\uFB00", u"2"}};
    EXPECT_THAT(Sent(), ElementsAre(SendsContextPairs(u"mctx", ordered), Opens("job", ordered)));
}

TEST_F(ActivityContextProxyTest, TextsAreSentUnitByUnit) {
    const std::u16string units = {u'a', u'\0', char16_t{0xD800}, u'\''};
    const TString text{std::u16string_view(units)};

    const ActivityContextProxy proxy("job", {{text, text}}, {});

    const Metrics::NameValueList pairs = m_events->First(MetricsEventType::OpenScope).pairs;
    ASSERT_THAT(pairs, SizeIs(1));
    EXPECT_EQ(*pairs.front().first.utf16, units);
    EXPECT_EQ(*pairs.front().second.utf16, units);
}

TEST_F(ActivityContextProxyTest, TheCallersAttributesStayAsTheyAre) {
    const Attributes attributes{{u"a", u"1"}};
    Attributes copy = attributes;

    ActivityContextProxy proxy("job", copy, copy);
    proxy.PutActivityAttributes(copy);
    proxy.PutContextAttributes(copy);
    proxy.Fail(u"reason", copy);
    proxy.Cancel(copy);

    EXPECT_EQ(copy, attributes);
}

// ---- Contexts, while foreground thread contexts are disabled.

TEST_F(ActivityContextProxyTest, AllSixKeysAreOrdinaryContextAttributes) {
    { const ActivityContextProxy proxy("job", {}, AllSix()); }

    EXPECT_THAT(Sent(),
                ElementsAre(SendsContextPairs(u"mctx",
                                              {{u"__root__", u"R"},
                                               {u"activityId", u"A"},
                                               {u"depth", u"3"},
                                               {u"rid", u"Q"},
                                               {u"sDepth", u"1"},
                                               {u"sponsorId", u"S"}}),
                            OpensJob(),
                            ThreadIdEvent(),
                            ClosesJob(),
                            PopsLayer()));
}

TEST_F(ActivityContextProxyTest, AllSixKeysAreOrdinaryActivityAttributes) {
    const ActivityContextProxy proxy("job", AllSix(), {});

    EXPECT_THAT(Sent(),
                ElementsAre(Opens("job",
                                  {{u"__root__", u"R"},
                                   {u"activityId", u"A"},
                                   {u"depth", u"3"},
                                   {u"rid", u"Q"},
                                   {u"sDepth", u"1"},
                                   {u"sponsorId", u"S"}})));
}

TEST_F(ActivityContextProxyTest, NothingIsAdoptedWhileForegroundContextsAreDisabled) {
    const ActivityContextProxy proxy("job", {}, AllSix());

    EXPECT_EQ(Current(), nullptr);
}

// ---- Attributes.

TEST_F(ActivityContextProxyTest, ActivityAttributesAreAdded) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.PutActivityAttributes({{u"rows", u"12"}, {u"pages", u"3"}});

    EXPECT_THAT(Sent(), ElementsAre(SendsPairs("multiNVPs", {{u"pages", u"3"}, {u"rows", u"12"}})));
}

TEST_F(ActivityContextProxyTest, AddingNoActivityAttributesIsAnEmissionAllTheSame) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.PutActivityAttributes({});

    EXPECT_THAT(Sent(), ElementsAre(SendsPairs("multiNVPs", {})));
}

TEST_F(ActivityContextProxyTest, ContextAttributesAreAddedAndTakenBackAtTheEnd) {
    {
        ActivityContextProxy proxy("job", {}, {{u"first", u"1"}});
        Sent();

        proxy.PutContextAttributes({{u"user", u"ann"}, {u"team", u"red"}});
        EXPECT_THAT(
            Sent(),
            ElementsAre(SendsContextPairs(u"mctx", {{u"team", u"red"}, {u"user", u"ann"}})));
        proxy.PutContextAttributes({{u"user", u"bob"}});
        Sent();
    }

    EXPECT_THAT(Sent(),
                ElementsAre(ThreadIdEvent(), ClosesJob(), PopsLayer(), PopsLayer(), PopsLayer()));
}

TEST_F(ActivityContextProxyTest, AddingNoContextAttributesSendsNothingNowOrLater) {
    {
        ActivityContextProxy proxy("job", {}, {});
        Sent();

        proxy.PutContextAttributes({});
        EXPECT_THAT(Sent(), IsEmpty());
    }

    EXPECT_THAT(Sent(), ElementsAre(ThreadIdEvent(), ClosesJob()));
}

TEST_F(ForegroundProxyTest, LaterAttributesAreNotFiltered) {
    const NameValueList six{{u"__root__", u"R"},
                            {u"activityId", u"A"},
                            {u"depth", u"3"},
                            {u"rid", u"Q"},
                            {u"sDepth", u"1"},
                            {u"sponsorId", u"S"}};
    ActivityContextProxy proxy("job", {}, {{u"__root__", u"other"}});
    const auto context = Texts(Current());
    Sent();

    proxy.PutActivityAttributes(AllSix());
    proxy.PutContextAttributes(AllSix());
    proxy.Cancel(AllSix());
    proxy.Fail(u"reason", AllSix());

    EXPECT_THAT(
        Sent(),
        ElementsAre(
            SendsPairs("multiNVPs", six),
            SendsContextPairs(u"mctx", six),
            SendsPairs(u"resultAttrs",
                       Joined(six, {{u"rk", u"early-termination"}, {u"type", u"canceled"}})),
            SendsPairs(u"resultAttrs", Joined(six, {{u"rk", u"reason"}}))));
    EXPECT_EQ(Texts(Current()), context);
}

// ---- After the end.

TEST_F(ForegroundProxyTest, AfterClosingEveryOperationDoesNothing) {
    OptTarn::SetShouldLogForegroundActivity(true);
    {
        ActivityContextProxy proxy("job", {}, AllSix() + Attributes{{u"user", u"ann"}});
        proxy.Close();
        Sent();
        Log().Clear();

        proxy.PutActivityAttributes({{u"a", u"1"}});
        proxy.PutContextAttributes({{u"a", u"1"}});
        proxy.Cancel({{u"a", u"1"}});
        proxy.Fail(u"reason", {{u"a", u"1"}});
        proxy.FailException(u"T", u"M");
        proxy.AttachToThread();
        EXPECT_EQ(Current(), nullptr);
        proxy.DetachFromThread();
        proxy.Close();
    }

    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(Log().Messages(), IsEmpty());
    EXPECT_THAT(Log().Events(), IsEmpty());
}

// ---- The proxy itself.

TEST_F(ActivityContextProxyTest, AProxyHoldsAPointerThatItDoesNotShare) {
    EXPECT_EQ(sizeof(ActivityContextProxy), sizeof(void*));
    EXPECT_FALSE(std::is_polymorphic_v<ActivityContextProxy>);
    EXPECT_FALSE(std::is_copy_constructible_v<ActivityContextProxy>);
    EXPECT_FALSE(std::is_copy_assignable_v<ActivityContextProxy>);
}

TEST_F(ActivityContextProxyTest, WhenMemoryRunsOutTheConstructorSaysSo) {
    StopListening(m_events);
    const std::string name = "job";
    const Attributes described = AllSix() + Attributes{{u"user", u"ann"}};
    bool failed = true;

    for (uint64 number = 0; failed; ++number) {
        const FailingAllocation failure(number);
        bool raised = false;
        try {
            const ActivityContextProxy proxy(name, described, described);
        } catch (const std::bad_alloc&) {
            raised = true;
        }
        failed = failure.HasFailed();
        ASSERT_EQ(raised, failed) << "allocation " << number;
        ASSERT_TRUE(failed || number > 0) << "no allocation was made to fail";
    }
    EXPECT_EQ(CurrentMetricsContext(), m_context.GetId());
}

}  // namespace
}  // namespace tarn::test
