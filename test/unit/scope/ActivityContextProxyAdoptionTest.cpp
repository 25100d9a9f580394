#include "ActivityContextProxyTest.h"

#include "tarn/ActivityScope.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsEvent.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Attributes = ActivityContextProxy::Attributes;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using Metrics::NameValuePair;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

TEST_F(ForegroundProxyTest, TheDescribedContextIsAdopted) {
    const ActivityContextProxy proxy("job", {}, AllSix());

    EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
}

TEST_F(ForegroundProxyTest, TheOpeningCarriesTheAdoptedContext) {
    const ActivityContextProxy proxy("job", {{u"path", u"/tmp"}}, AllSix());

    EXPECT_THAT(Sent(),
                ElementsAre(Opens("job",
                                  {{u"path", u"/tmp"},
                                   {u"traceDepth", 3},
                                   {u"sDepth", 1},
                                   {u"__root__", u"R"},
                                   {u"activityId", u"A"},
                                   {u"sponsorId", u"S"},
                                   {u"rid", u"Q"}})));
}

TEST_F(ForegroundProxyTest, TheSixKeysOfAnAdoptedContextAreNoContextAttributes) {
    { const ActivityContextProxy proxy("job", {}, AllSix() + Attributes{{u"user", u"ann"}}); }

    EXPECT_THAT(Sent(),
                ElementsAre(SendsContextPairs(u"mctx", {{u"user", u"ann"}}),
                            IsOfType(MetricsEventType::OpenScope),
                            ThreadIdEvent(),
                            ClosesJob(),
                            PopsLayer()));
}

TEST_F(ForegroundProxyTest, WithTheSixKeysAloneNoContextAttributesAreSentNorTakenBack) {
    { const ActivityContextProxy proxy("job", {}, AllSix()); }

    EXPECT_THAT(Sent(),
                ElementsAre(IsOfType(MetricsEventType::OpenScope), ThreadIdEvent(), ClosesJob()));
}

TEST_F(ForegroundProxyTest, OnAdoptionTheSixKeysAreNoActivityAttributesEither) {
    const Attributes impostors{{u"__root__", u"x"},
                               {u"rid", u"x"},
                               {u"activityId", u"x"},
                               {u"sponsorId", u"x"},
                               {u"depth", u"9"},
                               {u"sDepth", u"9"},
                               {u"zone", u"kept"}};

    const ActivityContextProxy proxy("job", impostors, AllSix());

    EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
    EXPECT_THAT(Sent(),
                ElementsAre(Opens("job",
                                  {{u"zone", u"kept"},
                                   {u"traceDepth", 3},
                                   {u"sDepth", 1},
                                   {u"__root__", u"R"},
                                   {u"activityId", u"A"},
                                   {u"sponsorId", u"S"},
                                   {u"rid", u"Q"}})));
}

TEST_F(ForegroundProxyTest, OnlyTheExactNamesAreKeptBack) {
    const Attributes lookAlikes{{u"RID", u"1"},
                                {u"rid ", u"2"},
                                {u"__ROOT__", u"3"},
                                {u"_root_", u"4"},
                                {u"Depth", u"5"},
                                {u"sdepth", u"6"},
                                {u"activityid", u"7"},
                                {u"sponsor", u"8"},
                                {u"traceDepth", u"9"}};

    const ActivityContextProxy proxy("job", {}, AllSix() + lookAlikes);

    EXPECT_THAT(m_events->First(MetricsEventType::AttributePairs).pairs, SizeIs(lookAlikes.size()));
    EXPECT_EQ(Current()->GetTraceDepth(), 3) << "the depth is read from \"depth\" alone";
}

TEST_F(ForegroundProxyTest, WhatIsMissingIsEmptyOrZero) {
    const ActivityContextProxy proxy("job", {}, {{u"__root__", u"R"}});

    EXPECT_THAT(Texts(Current()), ElementsAre("", "R", "", "", "0", "0"));
    EXPECT_THAT(Sent(),
                ElementsAre(Opens("job",
                                  {{u"traceDepth", 0},
                                   {u"sDepth", 0},
                                   {u"__root__", u"R"},
                                   {u"activityId", u""},
                                   {u"sponsorId", u""},
                                   {u"rid", u""}})));
}

TEST_F(ForegroundProxyTest, EachOfTheSixMayBeMissing) {
    const std::vector<std::pair<const char16_t*, std::vector<std::string>>> expectations{
        {u"rid", {"", "R", "A", "S", "3", "1"}},
        {u"activityId", {"Q", "R", "", "S", "3", "1"}},
        {u"sponsorId", {"Q", "R", "A", "", "3", "1"}},
        {u"depth", {"Q", "R", "A", "S", "0", "1"}},
        {u"sDepth", {"Q", "R", "A", "S", "3", "0"}}};
    for (const auto& [missing, expected] : expectations) {
        Attributes described = AllSix();
        described.erase(missing);

        const ActivityContextProxy proxy("job", {}, described);

        EXPECT_EQ(Texts(Current()), expected);
    }
}

TEST_F(ForegroundProxyTest, ARootThatIsEmptyIsARoot) {
    const ActivityContextProxy proxy("job", {}, {{u"__root__", u""}, {u"activityId", u"A"}});

    EXPECT_THAT(Texts(Current()), ElementsAre("", "", "A", "", "0", "0"));
}

TEST_F(ForegroundProxyTest, ARootAmongTheActivityAttributesAdoptsNothing) {
    const ActivityContextProxy proxy("job", AllSix(), {});

    EXPECT_THAT(Texts(Current()), Not(Contains("R")));
    const std::vector<EventContent> sent = Sent();
    ASSERT_THAT(sent, SizeIs(1));
    ASSERT_GE(sent[0].pairs.size(), 2U);
    EXPECT_EQ(sent[0].pairs[0], NameValuePair(u"__root__", u"R"));
    EXPECT_EQ(sent[0].pairs[1], NameValuePair(u"activityId", u"A"));
}

TEST_F(ForegroundProxyTest, DepthsAreWholeDecimalNumbersElseZero) {
    const std::vector<std::pair<TString, int>> expectations{{u"7", 7},
                                                            {u"007", 7},
                                                            {u"-2", -2},
                                                            {u"+5", 5},
                                                            {u"2147483647", 2147483647},
                                                            {u"-2147483648", -2147483647 - 1},
                                                            {u"", 0},
                                                            {u"-", 0},
                                                            {u"deep", 0},
                                                            {u"3 levels", 0},
                                                            {u"3.5", 0},
                                                            {u"0x10", 0},
                                                            {u"1e2", 0},
                                                            {u"--1", 0},
                                                            {u"\uFF13", 0},
                                                            {u"2147483648", 0},
                                                            {u"-2147483649", 0},
                                                            {u"99999999999999999999", 0}};
    for (const auto& [text, depth] : expectations) {
        const ActivityContextProxy proxy(
            "job", {}, {{u"__root__", u"R"}, {u"depth", text}, {u"sDepth", text}});

        EXPECT_EQ(Current()->GetTraceDepth(), depth) << text.ToUtf8();
        EXPECT_EQ(Current()->GetServiceDepth(), depth) << text.ToUtf8();
    }
}

TEST_F(ForegroundProxyTest, AdoptionDoesNotLookAtTheThreadsCurrentActivity) {
    const ActivityScope around("around");
    {
        const ActivityContextProxy proxy("job", {}, AllSix());
        EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
    }

    EXPECT_EQ(Current(), around.GetActivityContext());
}

TEST_F(ForegroundProxyTest, ScopesInsideContinueTheAdoptedActivity) {
    const ActivityContextProxy proxy("job", {}, AllSix());

    const ActivityScope inner("inner");

    const auto context = inner.GetActivityContext();
    ASSERT_NE(context, nullptr);
    EXPECT_THAT(Texts(context),
                ElementsAre("-", "R", context->GetActivityId().ToUtf8(), "A", "4", "2"));
}

TEST_F(ForegroundProxyTest, TwoProxiesMayContinueTheSameActivity) {
    const ActivityContextProxy first("job", {}, AllSix());
    const auto firstContext = Current();
    {
        const ActivityContextProxy second("job", {}, AllSix());
        EXPECT_NE(Current(), firstContext);
        EXPECT_EQ(Texts(Current()), Texts(firstContext));
    }

    EXPECT_EQ(Current(), firstContext);
}

TEST_F(ForegroundProxyTest, WithoutARootItBecomesAChildOfTheCurrentActivity) {
    const ActivityScope around("around");
    const auto parent = around.GetActivityContext();
    Attributes described = AllSix();
    described.erase(u"__root__");

    const ActivityContextProxy proxy("job", {}, described);

    const auto context = Current();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->GetRootId(), parent->GetRootId());
    EXPECT_EQ(context->GetSponsorId(), parent->GetActivityId());
    EXPECT_NE(context->GetActivityId(), parent->GetActivityId());
    EXPECT_EQ(context->GetRequestId(), TString(u"-"));
    EXPECT_EQ(context->GetTraceDepth(), 1);
    EXPECT_EQ(context->GetServiceDepth(), 1);
}

TEST_F(ForegroundProxyTest, WithoutARootAndACurrentActivityItIsAFreshRoot) {
    const ActivityContextProxy proxy("job", {}, {});

    const auto context = Current();
    ASSERT_NE(context, nullptr);
    const std::string id = context->GetActivityId().ToUtf8();
    EXPECT_THAT(Texts(context), ElementsAre("-", id, id, id, "0", "0"));
}

TEST_F(ForegroundProxyTest, WithoutARootTheOtherFiveAreOrdinaryAttributesOfBothKinds) {
    Attributes described = AllSix();
    described.erase(u"__root__");

    const ActivityContextProxy proxy("job", described, described);

    const NameValueList five{{u"activityId", u"A"},
                             {u"depth", u"3"},
                             {u"rid", u"Q"},
                             {u"sDepth", u"1"},
                             {u"sponsorId", u"S"}};
    EXPECT_THAT(Sent(),
                ElementsAre(SendsContextPairs(u"mctx", five),
                            Opens("job", Joined(five, ContextPairs(*Current())))));
    EXPECT_EQ(Current()->GetTraceDepth(), 0);
}

TEST_F(ForegroundProxyTest, TheActivityIsCurrentUntilItIsClosed) {
    const ActivityScope around("around");
    ActivityContextProxy proxy("job", {}, AllSix());
    ASSERT_EQ(Texts(Current()).at(1), "R");

    proxy.Close();

    EXPECT_EQ(Current(), around.GetActivityContext());
}

TEST_F(ForegroundProxyTest, ItIsCurrentEvenWhenNobodyListens) {
    StopListening(m_events);
    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, AllSix());
        proxy.PutActivityAttributes({{u"b", u"2"}});
        proxy.Fail(u"reason", {});

        EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
    }

    EXPECT_EQ(Current(), nullptr);
    EXPECT_THAT(Sent(), IsEmpty());
}

}  // namespace
}  // namespace tarn::test
