#include "tarn/ActivityContextProxy.h"

#include "AllocationCounter.h"
#include "Matchers.h"
#include "MetricsText.h"
#include "MonitoredHost.h"
#include "TarnTest.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/ExceptionParser.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TSystem.h"

#include <atomic>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Attributes = ActivityContextProxy::Attributes;
using Metrics::MetricsEventType;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::SizeIs;

constexpr const char* opensJob = "OpenScope \"job\" {}";
constexpr const char* closesJob = "CloseScope \"job\"";
constexpr const char* popsLayer = "PostCloseScope \"job\" action 0";
constexpr const char* unwinds =
    "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"early-termination\", L\"type\"=\"stack-unwind\", "
    "L\"msg\"=\"an exception caused early termination, but the exception details are not "
    "accessible in this context.\"}";
constexpr const char* canceled =
    "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"early-termination\", L\"type\"=L\"canceled\"}";
constexpr const char* failedWithException =
    "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"exception\", L\"type\"=L\"T\", L\"msg\"=L\"M\"}";

// ---- The outcome that the proxy's scope has in mind

const ActivityScope& ScopeOf(const ActivityContextProxy& proxy);
int32 StatusOf(const ActivityScope& scope);

template <auto Scope>
struct ScopeAccess {
    friend const ActivityScope& ScopeOf(const ActivityContextProxy& proxy) {
        return *(proxy.*Scope);
    }
};

template <auto Status>
struct StatusAccess {
    friend int32 StatusOf(const ActivityScope& scope) { return static_cast<int32>(scope.*Status); }
};

// Names in an explicit instantiation are not checked for access.
template struct ScopeAccess<&ActivityContextProxy::m_scope>;
template struct StatusAccess<&ActivityScope::m_status>;

constexpr int32 statusNone = 0;
constexpr int32 statusFailed = 1;
constexpr int32 statusCanceled = 2;

/// An activity as another process describes it.
Attributes AllSix() {
    return {{u"__root__", u"R"},
            {u"rid", u"Q"},
            {u"activityId", u"A"},
            {u"sponsorId", u"S"},
            {u"depth", u"3"},
            {u"sDepth", u"1"}};
}

Attributes operator+(Attributes a, const Attributes& b) {
    a.insert(b.begin(), b.end());
    return a;
}

std::shared_ptr<ActivityContext> Current() {
    return ActivityTracer::GetCurrentActivityContext();
}

/// request, root, activity, sponsor, trace depth, service depth
std::vector<std::string> Texts(const std::shared_ptr<ActivityContext>& context) {
    if (context == nullptr) {
        return {};
    }
    return {context->GetRequestId().ToUtf8(),
            context->GetRootId().ToUtf8(),
            context->GetActivityId().ToUtf8(),
            context->GetSponsorId().ToUtf8(),
            std::to_string(context->GetTraceDepth()),
            std::to_string(context->GetServiceDepth())};
}

std::string SendsThreadId() {
    return "NameValue L\"tid\"=" + std::to_string(TSystem::ThreadID());
}

uint64 CurrentMetricsContext() {
    return Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId();
}

/// A thread with a metrics context, and a listener that saw nothing yet. Foreground thread
/// contexts are disabled.
class ActivityContextProxyTest : public TarnTest {
protected:
    ActivityContextProxyTest() {
        m_context.OpenScope();
        m_events->Clear();
    }

    /// What was sent since the last look.
    std::vector<std::string> Sent() {
        std::vector<std::string> texts = m_events->Texts();
        m_events->Clear();
        return texts;
    }

    Metrics::Context m_context{0, Metrics::Context::Create(true)};
    RefCntPtr<RecordingListener> m_events = Listen();
};

/// The same with foreground thread contexts enabled.
class ForegroundProxyTest : public ActivityContextProxyTest {
protected:
    ForegroundProxyTest() { OptTarn::SetIsForegroundThreadContextEnabled(true); }
};

// ---- Beginning and end.

TEST_F(ActivityContextProxyTest, AnActivityLastsFromConstructionToDestruction) {
    {
        const ActivityContextProxy proxy("job", {}, {});
        EXPECT_THAT(Sent(), ElementsAre(opensJob));
    }

    EXPECT_THAT(Sent(), ElementsAre(SendsThreadId(), closesJob));
}

TEST_F(ActivityContextProxyTest, ClosingEndsTheActivityOnce) {
    {
        ActivityContextProxy proxy("job", {}, {});
        Sent();

        proxy.Close();
        EXPECT_THAT(Sent(), ElementsAre(SendsThreadId(), closesJob));
        proxy.Close();
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ActivityContextProxyTest, AttributesStandInTheOpening) {
    const ActivityContextProxy proxy("job", {{u"path", u"/tmp"}, {u"mode", u"fast"}}, {});

    EXPECT_THAT(Sent(),
                ElementsAre("OpenScope \"job\" {L\"mode\"=L\"fast\", L\"path\"=L\"/tmp\"}"));
}

TEST_F(ActivityContextProxyTest, ContextAttributesPrecedeTheOpeningAndGoWithTheScope) {
    { const ActivityContextProxy proxy("job", {}, {{u"user", u"ann"}, {u"team", u"red"}}); }

    EXPECT_THAT(Sent(),
                ElementsAre("AttributePairs L\"mctx\" {L\"team\"=L\"red\", L\"user\"=L\"ann\"}",
                            opensJob,
                            SendsThreadId(),
                            closesJob,
                            popsLayer));
}

TEST_F(ActivityContextProxyTest, TheScopeIsUntracked) {
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    corvala::cputime::SetCpuTrackingEnabled(true);

    { const ActivityContextProxy proxy("job", {}, {}); }

    EXPECT_THAT(m_events->Events(),
                Each(Field(&Metrics::MetricsEvent::flags, (uint64{1} << 53) | (uint64{1} << 54))));
    EXPECT_THAT(Sent(), ElementsAre(opensJob, SendsThreadId(), closesJob));
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

    EXPECT_THAT(Sent(),
                ElementsAre("OpenScope \"z\xC3\xA4hlen\" {}", opensJob, "OpenScope \"\" {}"));
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

    const std::string ordered =
        "{L\"\"=L\"7\", L\"B\"=L\"4\", L\"a\"=L\"8\", L\"ab\"=L\"5\", L\"b\"=L\"1\", "
        "L\"\xC3\xA9\"=L\"6\", L\"\xF0\x9F\x98\x80\"=L\"3\", L\"\xEF\xAC\x80\"=L\"2\"}";
    EXPECT_THAT(Sent(),
                ElementsAre("AttributePairs L\"mctx\" " + ordered, "OpenScope \"job\" " + ordered));
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
                ElementsAre("AttributePairs L\"mctx\" {L\"__root__\"=L\"R\", "
                            "L\"activityId\"=L\"A\", L\"depth\"=L\"3\", L\"rid\"=L\"Q\", "
                            "L\"sDepth\"=L\"1\", L\"sponsorId\"=L\"S\"}",
                            opensJob,
                            SendsThreadId(),
                            closesJob,
                            popsLayer));
}

TEST_F(ActivityContextProxyTest, AllSixKeysAreOrdinaryActivityAttributes) {
    const ActivityContextProxy proxy("job", AllSix(), {});

    EXPECT_THAT(Sent(),
                ElementsAre("OpenScope \"job\" {L\"__root__\"=L\"R\", L\"activityId\"=L\"A\", "
                            "L\"depth\"=L\"3\", L\"rid\"=L\"Q\", L\"sDepth\"=L\"1\", "
                            "L\"sponsorId\"=L\"S\"}"));
}

TEST_F(ActivityContextProxyTest, NothingIsAdoptedWhileForegroundContextsAreDisabled) {
    const ActivityContextProxy proxy("job", {}, AllSix());

    EXPECT_EQ(Current(), nullptr);
}

// ---- Contexts, while foreground thread contexts are enabled.

TEST_F(ForegroundProxyTest, TheDescribedContextIsAdopted) {
    const ActivityContextProxy proxy("job", {}, AllSix());

    EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
}

TEST_F(ForegroundProxyTest, TheOpeningCarriesTheAdoptedContext) {
    const ActivityContextProxy proxy("job", {{u"path", u"/tmp"}}, AllSix());

    EXPECT_THAT(Sent(),
                ElementsAre("OpenScope \"job\" {L\"path\"=L\"/tmp\", L\"traceDepth\"=3, "
                            "L\"sDepth\"=1, L\"__root__\"=L\"R\", L\"activityId\"=L\"A\", "
                            "L\"sponsorId\"=L\"S\", L\"rid\"=L\"Q\"}"));
}

TEST_F(ForegroundProxyTest, TheSixKeysOfAnAdoptedContextAreNoContextAttributes) {
    { const ActivityContextProxy proxy("job", {}, AllSix() + Attributes{{u"user", u"ann"}}); }

    EXPECT_THAT(Sent(),
                ElementsAre("AttributePairs L\"mctx\" {L\"user\"=L\"ann\"}",
                            HasSubstr("OpenScope"),
                            SendsThreadId(),
                            closesJob,
                            popsLayer));
}

TEST_F(ForegroundProxyTest, WithTheSixKeysAloneNoContextAttributesAreSentNorTakenBack) {
    { const ActivityContextProxy proxy("job", {}, AllSix()); }

    EXPECT_THAT(Sent(), ElementsAre(HasSubstr("OpenScope"), SendsThreadId(), closesJob));
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
                ElementsAre("OpenScope \"job\" {L\"zone\"=L\"kept\", L\"traceDepth\"=3, "
                            "L\"sDepth\"=1, L\"__root__\"=L\"R\", L\"activityId\"=L\"A\", "
                            "L\"sponsorId\"=L\"S\", L\"rid\"=L\"Q\"}"));
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
                ElementsAre("OpenScope \"job\" {L\"traceDepth\"=0, L\"sDepth\"=0, "
                            "L\"__root__\"=L\"R\", L\"activityId\"=L\"\", L\"sponsorId\"=L\"\", "
                            "L\"rid\"=L\"\"}"));
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
    EXPECT_THAT(Sent(), ElementsAre(HasSubstr("{L\"__root__\"=L\"R\", L\"activityId\"=L\"A\"")));
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

    const std::string five =
        "L\"activityId\"=L\"A\", L\"depth\"=L\"3\", L\"rid\"=L\"Q\", L\"sDepth\"=L\"1\", "
        "L\"sponsorId\"=L\"S\"";
    EXPECT_THAT(Sent(),
                ElementsAre("AttributePairs L\"mctx\" {" + five + "}",
                            HasSubstr("OpenScope \"job\" {" + five + ", L\"traceDepth\"=0")));
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

// ---- Attributes.

TEST_F(ActivityContextProxyTest, ActivityAttributesAreAdded) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.PutActivityAttributes({{u"rows", u"12"}, {u"pages", u"3"}});

    EXPECT_THAT(Sent(),
                ElementsAre("NameValuePairs \"multiNVPs\" {L\"pages\"=L\"3\", L\"rows\"=L\"12\"}"));
}

TEST_F(ActivityContextProxyTest, AddingNoActivityAttributesIsAnEmissionAllTheSame) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.PutActivityAttributes({});

    EXPECT_THAT(Sent(), ElementsAre("NameValuePairs \"multiNVPs\" {}"));
}

TEST_F(ActivityContextProxyTest, ContextAttributesAreAddedAndTakenBackAtTheEnd) {
    {
        ActivityContextProxy proxy("job", {}, {{u"first", u"1"}});
        Sent();

        proxy.PutContextAttributes({{u"user", u"ann"}, {u"team", u"red"}});
        EXPECT_THAT(
            Sent(),
            ElementsAre("AttributePairs L\"mctx\" {L\"team\"=L\"red\", L\"user\"=L\"ann\"}"));
        proxy.PutContextAttributes({{u"user", u"bob"}});
        Sent();
    }

    EXPECT_THAT(Sent(), ElementsAre(SendsThreadId(), closesJob, popsLayer, popsLayer, popsLayer));
}

TEST_F(ActivityContextProxyTest, AddingNoContextAttributesSendsNothingNowOrLater) {
    {
        ActivityContextProxy proxy("job", {}, {});
        Sent();

        proxy.PutContextAttributes({});
        EXPECT_THAT(Sent(), IsEmpty());
    }

    EXPECT_THAT(Sent(), ElementsAre(SendsThreadId(), closesJob));
}

TEST_F(ForegroundProxyTest, LaterAttributesAreNotFiltered) {
    const std::string six =
        "{L\"__root__\"=L\"R\", L\"activityId\"=L\"A\", L\"depth\"=L\"3\", L\"rid\"=L\"Q\", "
        "L\"sDepth\"=L\"1\", L\"sponsorId\"=L\"S\"}";
    ActivityContextProxy proxy("job", {}, {{u"__root__", u"other"}});
    const auto context = Texts(Current());
    Sent();

    proxy.PutActivityAttributes(AllSix());
    proxy.PutContextAttributes(AllSix());
    proxy.Cancel(AllSix());
    proxy.Fail(u"reason", AllSix());

    const std::string open = six.substr(0, six.size() - 1);
    EXPECT_THAT(Sent(),
                ElementsAre("NameValuePairs \"multiNVPs\" " + six,
                            "AttributePairs L\"mctx\" " + six,
                            "NameValuePairs L\"resultAttrs\" " + open +
                                ", L\"rk\"=L\"early-termination\", L\"type\"=L\"canceled\"}",
                            "NameValuePairs L\"resultAttrs\" " + open + ", L\"rk\"=L\"reason\"}"));
    EXPECT_EQ(Texts(Current()), context);
}

// ---- Outcomes.

TEST_F(ActivityContextProxyTest, CancelingPutsTheOutcomeBehindTheCallersPairs) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Cancel({{u"why", u"timeout"}, {u"zone", u"eu"}});
    proxy.Cancel({});

    EXPECT_THAT(Sent(),
                ElementsAre("NameValuePairs L\"resultAttrs\" {L\"why\"=L\"timeout\", "
                            "L\"zone\"=L\"eu\", L\"rk\"=L\"early-termination\", "
                            "L\"type\"=L\"canceled\"}",
                            canceled));
}

TEST_F(ActivityContextProxyTest, FailingPutsTheReasonBehindTheCallersPairs) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Fail(u"quota", {{u"used", u"11"}, {u"zone", u"eu"}});
    proxy.Fail(u"", {});

    EXPECT_THAT(Sent(),
                ElementsAre("NameValuePairs L\"resultAttrs\" {L\"used\"=L\"11\", "
                            "L\"zone\"=L\"eu\", L\"rk\"=L\"quota\"}",
                            "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"\"}"));
}

TEST_F(ActivityContextProxyTest, ACallersOwnResultKeyStaysBesideTheReason) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Fail(u"quota", {{u"rk", u"mine"}, {u"type", u"mine too"}});

    EXPECT_THAT(Sent(),
                ElementsAre("NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"mine\", "
                            "L\"type\"=L\"mine too\", L\"rk\"=L\"quota\"}"));
}

TEST_F(ActivityContextProxyTest, AnExceptionGivesThreePairs) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.FailException(u"T", u"M");
    proxy.FailException(u"", u"");

    EXPECT_THAT(Sent(),
                ElementsAre(failedWithException,
                            "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"exception\", "
                            "L\"type\"=L\"\", L\"msg\"=L\"\"}"));
}

TEST_F(ActivityContextProxyTest, EveryReportIsSentWhateverCameBefore) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Cancel({});
    proxy.Fail(u"late", {});
    proxy.FailException(u"T", u"M");
    proxy.Fail(u"later", {});
    proxy.Cancel({});

    EXPECT_THAT(Sent(),
                ElementsAre(canceled,
                            "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"late\"}",
                            failedWithException,
                            "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"later\"}",
                            canceled));
}

TEST_F(ActivityContextProxyTest, EveryReportSetsTheOutcomeWhateverCameBefore) {
    ActivityContextProxy proxy("job", {}, {});
    EXPECT_EQ(StatusOf(ScopeOf(proxy)), statusNone);

    proxy.Cancel({});
    EXPECT_EQ(StatusOf(ScopeOf(proxy)), statusCanceled);
    proxy.Fail(u"quota", {});
    EXPECT_EQ(StatusOf(ScopeOf(proxy)), statusFailed);
    proxy.Cancel({});
    EXPECT_EQ(StatusOf(ScopeOf(proxy)), statusCanceled);
    proxy.FailException(u"T", u"M");
    EXPECT_EQ(StatusOf(ScopeOf(proxy)), statusFailed);
}

class UnwindingProxyTest : public ActivityContextProxyTest {
protected:
    /// Lets an exception end an activity that has made this report, and gives what is sent then.
    template <class Report>
    std::vector<std::string> SentWhileUnwinding(Report&& report) {
        try {
            ActivityContextProxy proxy("job", {}, {});
            report(proxy);
            Sent();
            throw std::runtime_error("x");
        } catch (const std::runtime_error&) {
        }
        return Sent();
    }
};

TEST_F(UnwindingProxyTest, AnExceptionThatWasNotReportedIsAnEarlyTermination) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy&) {}),
                ElementsAre(unwinds, SendsThreadId(), closesJob));
}

TEST_F(UnwindingProxyTest, AReportedExceptionIsNotReportedAgain) {
    EXPECT_THAT(
        SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.FailException(u"T", u"M"); }),
        ElementsAre(SendsThreadId(), closesJob));
}

TEST_F(UnwindingProxyTest, AfterAFailureNoEarlyTerminationIsReported) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.Fail(u"quota", {}); }),
                ElementsAre(SendsThreadId(), closesJob));
}

TEST_F(UnwindingProxyTest, AfterACancellationNoEarlyTerminationIsReported) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.Cancel({}); }),
                ElementsAre(SendsThreadId(), closesJob));
}

TEST_F(UnwindingProxyTest, AfterSeveralReportsNoEarlyTerminationIsReported) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) {
                    proxy.Fail(u"quota", {});
                    proxy.Cancel({});
                }),
                ElementsAre(SendsThreadId(), closesJob));
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) {
                    proxy.Cancel({});
                    proxy.FailException(u"T", u"M");
                }),
                ElementsAre(SendsThreadId(), closesJob));
}

TEST_F(UnwindingProxyTest, AttributesAloneAreNoReport) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) {
                    proxy.PutActivityAttributes({{u"rk", u"exception"}});
                }),
                ElementsAre(unwinds, SendsThreadId(), closesJob));
}

TEST_F(UnwindingProxyTest, AnActivityThatWasClosedBeforeIsNotConcerned) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.Close(); }), IsEmpty());
}

TEST_F(UnwindingProxyTest, AnActivityThatIsClosedWhileUnwindingIsTerminatedEarly) {
    ActivityContextProxy proxy("job", {}, {});

    struct Closer {
        ActivityContextProxy& proxy;

        ~Closer() { proxy.Close(); }
    };

    Sent();

    EXPECT_THROW(
        {
            const Closer closer{proxy};
            throw std::runtime_error("x");
        },
        std::runtime_error);

    EXPECT_THAT(Sent(), ElementsAre(unwinds, SendsThreadId(), closesJob));
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

// ---- Switched off.

class SwitchedOffProxyTest : public ForegroundProxyTest {
protected:
    SwitchedOffProxyTest() { TarnSettings::GetInstance().SetOffs({"job"}); }
};

TEST_F(SwitchedOffProxyTest, ReportsLeaveTheOutcomeAlone) {
    ActivityContextProxy proxy("job", {}, {});

    proxy.Fail(u"reason", {});
    proxy.FailException(u"T", u"M");
    proxy.Cancel({});

    EXPECT_EQ(StatusOf(ScopeOf(proxy)), statusNone);
}

TEST_F(SwitchedOffProxyTest, NothingIsSentAndNothingIsCurrent) {
    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, AllSix() + Attributes{{u"user", u"ann"}});
        EXPECT_EQ(Current(), nullptr);

        proxy.PutActivityAttributes({{u"a", u"1"}});
        proxy.PutContextAttributes({{u"a", u"1"}});
        proxy.Cancel({{u"a", u"1"}});
        proxy.Fail(u"reason", {{u"a", u"1"}});
        proxy.FailException(u"T", u"M");
        proxy.AttachToThread();
        EXPECT_EQ(Current(), nullptr);
        proxy.DetachFromThread();
        proxy.Close();
        proxy.Close();
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, TheSameHoldsWithoutARoot) {
    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, {{u"user", u"ann"}});
        proxy.FailException(u"T", u"M");
        EXPECT_EQ(Current(), nullptr);
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, TheSameHoldsByRank) {
    TarnSettings::GetInstance().SetOffs({});
    TarnSettings::GetInstance().SetRankOn(static_cast<TraceRank>(-1));

    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, AllSix());
        proxy.Cancel({});
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, UnwindingItSendsNothing) {
    EXPECT_THROW(
        {
            const ActivityContextProxy proxy("job", {}, AllSix());
            throw std::runtime_error("x");
        },
        std::runtime_error);

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, TheActivityAroundItStaysCurrent) {
    const ActivityScope around("around");

    const ActivityContextProxy proxy("job", {}, AllSix());

    EXPECT_EQ(Current(), around.GetActivityContext());
}

TEST_F(SwitchedOffProxyTest, OtherNamesAreOn) {
    const ActivityContextProxy proxy("jobs", {}, AllSix());

    EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
}

TEST_F(SwitchedOffProxyTest, FirstOnAThreadItStillOwnsAMetricsContext) {
    std::string threadId;

    OnAnotherThread([&threadId] {
        threadId = std::to_string(TSystem::ThreadID());
        const ActivityContextProxy proxy("job", {}, AllSix());
        EXPECT_NE(CurrentMetricsContext(), 0U);
    });

    EXPECT_THAT(
        Sent(),
        ElementsAre(
            "CreateContext", "OpenContext", "Attribute L\"tid\"=" + threadId, "CloseContext"));
}

// ---- Threads.

TEST_F(ForegroundProxyTest, AnActivityMovesBetweenThreads) {
    std::optional<ActivityContextProxy> proxy;
    std::shared_ptr<ActivityContext> context;
    uint64 metricsContext = 0;

    OnAnotherThread([&] {
        proxy.emplace("job", Attributes{}, AllSix());
        context = Current();
        metricsContext = CurrentMetricsContext();
        proxy->DetachFromThread();
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(CurrentMetricsContext(), 0U);
    });
    OnAnotherThread([&] {
        proxy->AttachToThread();
        EXPECT_EQ(Current(), context);
        EXPECT_EQ(CurrentMetricsContext(), metricsContext);
        Sent();
        proxy->PutContextAttributes({{u"user", u"ann"}});
        EXPECT_EQ(m_events->First(MetricsEventType::AttributePairs).contextId, metricsContext);
        Sent();

        proxy->Close();

        EXPECT_THAT(Sent(), ElementsAre(SendsThreadId(), closesJob, popsLayer, "CloseContext"));
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(CurrentMetricsContext(), 0U);
    });
}

TEST_F(ForegroundProxyTest, ClosingElsewhereTakesTheActivityOffThatThreadOnly) {
    OnAnotherThread([this] {
        ActivityContextProxy proxy("job", {}, AllSix());
        const auto context = Current();
        Sent();

        OnAnotherThread([this, &proxy] {
            proxy.Close();
            EXPECT_THAT(Sent(), Contains(SendsThreadId()));
        });

        EXPECT_EQ(Current(), context);
    });
}

TEST_F(ForegroundProxyTest, AttachingOnItsOwnThreadMakesTheActivityCurrentAgain) {
    ActivityContextProxy proxy("job", {}, AllSix());
    const auto context = Current();
    const ActivityScope inner("inner");
    ASSERT_NE(Current(), context);

    proxy.AttachToThread();
    EXPECT_EQ(Current(), context);
    proxy.DetachFromThread();

    EXPECT_EQ(Current(), inner.GetActivityContext());
}

TEST_F(ForegroundProxyTest, TheMovesAreLogged) {
    ActivityContextProxy proxy("job", {}, AllSix());
    OptTarn::SetShouldLogForegroundActivity(true);

    proxy.DetachFromThread();
    proxy.AttachToThread();
    OptTarn::SetShouldLogForegroundActivity(false);

    EXPECT_THAT(Log().Messages(),
                ElementsAre(Pair(TLog::Info, "ActivityScope::DetachFromThread"),
                            Pair(TLog::Info, "ActivityScope::AttachToThread")));
}

TEST_F(ForegroundProxyTest, ACapturedProxyActivityHasChildrenOnOtherThreads) {
    const ActivityContextProxy proxy("job", {}, AllSix());
    const ThreadContextPropagator propagator;

    OnAnotherThread([&propagator] {
        const ActivityScope there("there",
                                  CustomContext(Metrics::NameValueList()),
                                  Traits(),
                                  {},
                                  ActivityContextInitializer{propagator.GetContext()});

        EXPECT_EQ(there.GetActivityContext()->GetSponsorId(), TString(u"A"));
        EXPECT_EQ(there.GetActivityContext()->GetTraceDepth(), 4);
    });
}

TEST_F(ForegroundProxyTest, ManyThreadsDriveProxiesOfTheirOwn) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 3; ++number) {
        threads.emplace_back([&wrong, number] {
            const TString root = TString::number(number);
            for (int round = 0; round < 100; ++round) {
                ActivityContextProxy proxy("job", {{u"a", u"1"}}, {{u"__root__", root}});
                if (Current() == nullptr || Current()->GetRootId() != root) {
                    ++wrong;
                }
                proxy.PutContextAttributes({{u"user", u"ann"}});
                proxy.FailException(u"T", u"M");
                proxy.Close();
                if (Current() != nullptr) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope), 300U);
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 300U);
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

// ---- In the log.

class ActivityContextProxyInTheLogTest : public TarnTest {
protected:
    MonitoredHost m_host;
};

TEST_F(ActivityContextProxyInTheLogTest, AnAdoptedActivityContinuesUnderItsOwnIds) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    { const ActivityContextProxy proxy("job", {{u"path", u"/tmp"}}, AllSix()); }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(m_host.Events(),
                Each(AllOf(HasRequest("Q"),
                           HasActivityField("id", "A"),
                           HasActivityField("root", "R"),
                           HasActivityField("depth", 3),
                           HasBodyField("sDepth", 1))));
    EXPECT_THAT(m_host.Events(),
                ElementsAre(AllOf(Begins("job"), HasBodyField("path", "/tmp")), Ends("job")));
}

TEST_F(ActivityContextProxyInTheLogTest, AParsedExceptionBecomesTheResult) {
    ActivityContextProxy proxy("job", {}, {});
    try {
        throw std::out_of_range("past the end");
    } catch (...) {
        const ExceptionInfo info = ExceptionParser::ParseException(std::current_exception());
        proxy.FailException(info.type, info.message);
    }
    proxy.Close();

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(
        m_host.Events().back(),
        AllOf(
            Ends("job"),
            HasActivityField("rk", "exception"),
            HasActivityField(
                "rv", LogValue::Object({{"type", "std::out_of_range"}, {"msg", "past the end"}}))));
}

TEST_F(ActivityContextProxyInTheLogTest, TheLastReportGivesTheResult) {
    {
        ActivityContextProxy proxy("job", {}, {});
        proxy.Cancel({{u"why", u"timeout"}});
        proxy.Fail(u"quota", {{u"used", u"11"}});
    }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(
        m_host.Events().back(),
        AllOf(HasActivityField("rk", "quota"),
              HasActivityField(
                  "rv",
                  LogValue::Object({{"why", "timeout"}, {"type", "canceled"}, {"used", "11"}}))));
}

TEST_F(ActivityContextProxyInTheLogTest, ContextAttributesReachTheActivityAndNoLaterOne) {
    { const ActivityContextProxy proxy("job", {}, {{u"team", u"red"}}); }
    { const ActivityContextProxy proxy("next", {}, {}); }

    EXPECT_THAT(m_host.Events(),
                ElementsAre(AllOf(Begins("job"), HasAttribute("team", "red")),
                            AllOf(Ends("job"), HasAttribute("team", "red")),
                            AllOf(Begins("next"), LacksAttribute("team")),
                            AllOf(Ends("next"), LacksAttribute("team"))));
}

}  // namespace
}  // namespace tarn::test
