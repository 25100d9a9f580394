#include "tarn/ScopeWithVisualId.h"

#include "AllocationCounter.h"
#include "Matchers.h"
#include "MonitoredHost.h"
#include "ScopeTree.h"
#include "TarnTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEventType;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint64 visualFlag = 0x40;

EventContent OpensRender() {
    return Opens("render");
}

EventContent SendsSheet() {
    return SendsValue("'ws'", u"Sheet");
}

EventContent SendsBoard() {
    return SendsValue("'db'", u"Board");
}

EventContent ClosesRender() {
    return Closes("render");
}

/// A thread with a metrics context, and a listener that wants visual scopes and saw nothing yet.
class ScopeWithVisualIdTest : public TarnTest {
protected:
    ScopeWithVisualIdTest() {
        m_context.OpenScope();
        m_events->Clear();
    }

    Metrics::Context m_context{0, Metrics::Context::Create(true)};
    RefCntPtr<RecordingListener> m_events = Listen(visualFlag, false);
};

// ---- What is sent.

TEST_F(ScopeWithVisualIdTest, TheDashboardPrecedesTheWorksheet) {
    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"Board"); }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(OpensRender(), SendsBoard(), SendsSheet(), ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, AllIsSentAtConstructionExceptTheEnd) {
    const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"Board");

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsBoard(), SendsSheet()));
}

TEST_F(ScopeWithVisualIdTest, AnEmptyDashboardIsNotMentioned) {
    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString()); }

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsSheet(), ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, ADashboardThatEqualsTheWorksheetIsNotRepeated) {
    const TString worksheet(u"Sheet");
    const TString equalText(u"Sheet");
    ASSERT_NE(worksheet.SharedCharacters(), equalText.SharedCharacters());

    { const ScopeWithVisualId scope("render", visualFlag, worksheet, equalText); }
    { const ScopeWithVisualId scope("render", visualFlag, worksheet, worksheet); }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(OpensRender(),
                            SendsSheet(),
                            ClosesRender(),
                            OpensRender(),
                            SendsSheet(),
                            ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, ADashboardThatDiffersInCaseIsAnotherOne) {
    const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"SHEET");

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(OpensRender(), SendsValue("'db'", u"SHEET"), SendsSheet()));
}

TEST_F(ScopeWithVisualIdTest, ADashboardThatOnlyBeginsLikeTheWorksheetIsAnotherOne) {
    const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"Sheet ");

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(OpensRender(), SendsValue("'db'", u"Sheet "), SendsSheet()));
}

TEST_F(ScopeWithVisualIdTest, AnEmptyWorksheetIsStillSent) {
    const ScopeWithVisualId scope("render", visualFlag, TString(), u"Board");

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(OpensRender(), SendsBoard(), SendsValue("'ws'", u"")));
}

TEST_F(ScopeWithVisualIdTest, WithoutAnyNameTheEmptyWorksheetIsStillSent) {
    const ScopeWithVisualId scope("render", visualFlag, TString(), TString());

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsValue("'ws'", u"")));
}

TEST_F(ScopeWithVisualIdTest, NamesAreSentUnitByUnit) {
    const std::u16string worksheet = {u'a', u'\0', char16_t{0xD800}, u'\u65E5', u'\'', u'"'};

    const ScopeWithVisualId scope(
        "render", visualFlag, TString(std::u16string_view(worksheet)), TString());

    const Metrics::MetricsEvent event = m_events->First(MetricsEventType::NameValue);
    ASSERT_EQ(event.value.type, Metrics::MetricsValue::MV_Utf16String);
    EXPECT_EQ(*event.value.utf16, worksheet);
}

TEST_F(ScopeWithVisualIdTest, TheNameMayHoldAnyUtf8AndIsReadDuringTheCallOnly) {
    std::string name = "z\xC3\xA4hlen";
    {
        const ScopeWithVisualId scope(name.c_str(), visualFlag, u"Sheet", TString());
        name.assign(name.size(), '-');
    }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(Opens("z\xC3\xA4hlen"), SendsSheet(), Closes("z\xC3\xA4hlen")));
}

TEST_F(ScopeWithVisualIdTest, EveryEventIsTheScopesOwn) {
    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"Board"); }

    const auto events = m_events->Events();
    ASSERT_EQ(events.size(), 4U);
    EXPECT_NE(events.front().id, 0U);
    EXPECT_THAT(events,
                Each(AllOf(Field("id", &Metrics::MetricsEvent::id, events.front().id),
                           Field("contextId", &Metrics::MetricsEvent::contextId, m_context.GetId()),
                           Field("flags", &Metrics::MetricsEvent::flags, visualFlag))));
}

TEST_F(ScopeWithVisualIdTest, FlagsAreUsedAsTheyAre) {
    constexpr uint64 flags = visualFlag | 0x8000000000000009;

    { const ScopeWithVisualId scope("render", flags, u"Sheet", u"Board"); }

    EXPECT_THAT(m_events->Events(), SizeIs(4));
    EXPECT_THAT(m_events->Events(), Each(Field(&Metrics::MetricsEvent::flags, flags)));
}

TEST_F(ScopeWithVisualIdTest, WithoutFlagsItGoesToThoseWhoWantEverything) {
    const auto everything = Listen(Metrics::flagTracing, true);

    { const ScopeWithVisualId scope("render", 0, u"Sheet", TString()); }

    EXPECT_THAT(everything->Contents(), ElementsAre(OpensRender(), SendsSheet(), ClosesRender()));
    EXPECT_THAT(everything->Events(), Each(Field(&Metrics::MetricsEvent::flags, 0U)));
    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

// ---- When nothing is sent.

TEST_F(ScopeWithVisualIdTest, FlagsThatNobodyWantsMakeNoScope) {
    std::optional<ScopeWithVisualId> scope;
    scope.emplace("render", visualFlag << 1, u"Sheet", u"Board");
    const auto everything = Listen(Metrics::flagTracing, true);

    scope.reset();

    EXPECT_THAT(m_events->Contents(), IsEmpty());
    EXPECT_THAT(everything->Contents(), IsEmpty());
}

TEST_F(ScopeWithVisualIdTest, FlagsThatNobodyWantsCostNoAllocation) {
    const TString worksheet(u"Sheet");
    const TString dashboard(u"Board");
    const auto allocationsWith = [&](uint64 flags) {
        const AllocationCounter counter;
        { const ScopeWithVisualId scope("render", flags, worksheet, dashboard); }
        return counter.Allocations();
    };

    EXPECT_EQ(allocationsWith(visualFlag << 1), 0U);
    EXPECT_GT(allocationsWith(visualFlag), 0U) << "the scope that is wanted must be counted";
}

TEST_F(ScopeWithVisualIdTest, AListenerThatComesLaterHearsNothingOfAScopeThatNobodyWanted) {
    StopListening(m_events);
    std::optional<ScopeWithVisualId> scope;
    scope.emplace("render", visualFlag, u"Sheet", u"Board");
    const auto late = Listen(visualFlag, true);

    scope.reset();

    EXPECT_THAT(late->Contents(), IsEmpty());
    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ScopeWithVisualIdTest, AListenerThatLeavesHearsNoEnd) {
    std::optional<ScopeWithVisualId> scope;
    scope.emplace("render", visualFlag, u"Sheet", TString());

    StopListening(m_events);
    scope.reset();

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsSheet()));
}

TEST_F(ScopeWithVisualIdTest, WithoutAMetricsContextNothingIsSentAndNoneIsMade) {
    OnAnotherThread([] {
        const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"Board");

        EXPECT_EQ(Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId(),
                  0U);
    });

    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ScopeWithVisualIdTest, AScopeThatFoundNoContextStaysSilentWhenOneComes) {
    OnAnotherThread([] {
        std::optional<ScopeWithVisualId> scope;
        scope.emplace("render", visualFlag, u"Sheet", u"Board");
        Metrics::Context late(0, Metrics::Context::Create(true));
        late.OpenScope();

        scope.reset();
    });

    EXPECT_EQ(m_events->Count(MetricsEventType::OpenContext), 1U);
    EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope), 0U);
    EXPECT_EQ(m_events->Count(MetricsEventType::NameValue), 0U);
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 0U);
}

// ---- What it is not.

TEST_F(ScopeWithVisualIdTest, ItHasNoActivityContext) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString());

    EXPECT_EQ(ThreadContextPropagator().GetContext(), nullptr);
    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsSheet()));
}

TEST_F(ScopeWithVisualIdTest, TheActivityAroundItStaysCurrent) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const ActivityScope activity("load");

    const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString());

    ASSERT_NE(activity.GetActivityContext(), nullptr);
    EXPECT_EQ(ThreadContextPropagator().GetContext(), activity.GetActivityContext());
}

TEST_F(ScopeWithVisualIdTest, ItCannotBeSwitchedOff) {
    TarnSettings::GetInstance().SetOffs({"render"});
    TarnSettings::GetInstance().SetRankOn(static_cast<TraceRank>(-1));

    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", u"Board"); }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(OpensRender(), SendsBoard(), SendsSheet(), ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, ItDoesNotNeedTracingToBeEnabled) {
    OptTarn::SetIsTarnEnabled(false);

    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString()); }

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsSheet(), ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, ItMeasuresNothing) {
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    corvala::cputime::SetCpuTrackingEnabled(true);

    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString()); }

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsSheet(), ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, ItLogsNothingOfItsOwn) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    OptTarn::SetShouldLogForegroundActivity(true);

    { const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString()); }

    EXPECT_THAT(Log().Messages(), IsEmpty());
    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ScopeWithVisualIdTest, AnExceptionThatUnwindsItIsNotReported) {
    EXPECT_THROW(
        {
            const ScopeWithVisualId scope("render", visualFlag, u"Sheet", TString());
            throw std::runtime_error("x");
        },
        std::runtime_error);

    EXPECT_THAT(m_events->Contents(), ElementsAre(OpensRender(), SendsSheet(), ClosesRender()));
}

TEST_F(ScopeWithVisualIdTest, ItIsNeitherCopiedNorMovedAndHoldsAPointerAlone) {
    EXPECT_FALSE(std::is_copy_constructible_v<ScopeWithVisualId>);
    EXPECT_FALSE(std::is_copy_assignable_v<ScopeWithVisualId>);
    EXPECT_FALSE(std::is_move_constructible_v<ScopeWithVisualId>);
    EXPECT_FALSE(std::is_move_assignable_v<ScopeWithVisualId>);
    EXPECT_EQ(sizeof(ScopeWithVisualId), sizeof(void*));
}

TEST_F(ScopeWithVisualIdTest, ScopesNest) {
    {
        const ScopeWithVisualId outer("board", visualFlag, TString(), u"Board");
        const ScopeWithVisualId inner("render", visualFlag, u"Sheet", u"Board");
    }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(Opens("board"),
                            SendsBoard(),
                            SendsValue("'ws'", u""),
                            OpensRender(),
                            SendsBoard(),
                            SendsSheet(),
                            ClosesRender(),
                            Closes("board")));
}

// ---- In the log.

class ScopeWithVisualIdInTheLogTest : public TarnTest {
protected:
    MonitoredHost m_host;
};

TEST_F(ScopeWithVisualIdInTheLogTest, TheKeysLoseTheirApostrophes) {
    { const ScopeWithVisualId scope("render", Metrics::flagTracing, u"Sheet", u"Board"); }

    EXPECT_THAT(m_host.Events(),
                ElementsAre(AllOf(Begins("render"), HasExactlyBodyFields({})),
                            AllOf(Ends("render"),
                                  HasExactlyBodyFields({"db", "ws"}),
                                  HasBodyField("db", "Board"),
                                  HasBodyField("ws", "Sheet"))));
}

TEST_F(ScopeWithVisualIdInTheLogTest, WithoutADashboardThereIsTheWorksheetAlone) {
    { const ScopeWithVisualId scope("render", Metrics::flagTracing, u"Sheet", u"Sheet"); }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(m_host.Events().back(),
                AllOf(HasExactlyBodyFields({"ws"}), HasBodyField("ws", "Sheet")));
}

TEST_F(ScopeWithVisualIdInTheLogTest, AnEmptyWorksheetIsLogged) {
    { const ScopeWithVisualId scope("render", Metrics::flagTracing, TString(), TString()); }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(m_host.Events().back(), HasBodyField("ws", ""));
}

TEST_F(ScopeWithVisualIdInTheLogTest, NamesKeepTheirOwnQuotes) {
    {
        const ScopeWithVisualId scope(
            "render", Metrics::flagTracing, u"'Bob's sheet'", u"a \"b\"\nc");
    }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(m_host.Events().back(),
                AllOf(HasBodyField("ws", "'Bob's sheet'"), HasBodyField("db", "a \"b\"\nc")));
}

TEST_F(ScopeWithVisualIdInTheLogTest, ItStandsUnderTheActivityAroundIt) {
    {
        const ActivityScope activity("load");
        const ScopeWithVisualId scope("render", Metrics::flagTracing, u"Sheet", TString());
    }

    EXPECT_EQ(DrawScopeTree(m_host.Events()), "load\n  render\n");
    ASSERT_EQ(m_host.Events().size(), 4U);
    EXPECT_THAT(m_host.Events().back(), AllOf(Ends("load"), LacksBodyField("ws")));
}

TEST_F(ScopeWithVisualIdInTheLogTest, WithoutTheTracingBitItLeavesNoTrace) {
    {
        const ActivityScope activity("load");
        const ScopeWithVisualId scope("render", 0, u"Sheet", u"Board");
    }

    EXPECT_THAT(m_host.Events(),
                ElementsAre(Begins("load"), AllOf(Ends("load"), HasExactlyBodyFields({}))));
}

}  // namespace
}  // namespace tarn::test
