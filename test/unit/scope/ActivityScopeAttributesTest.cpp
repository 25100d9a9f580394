#include "AllocationCounter.h"
#include "CountingListener.h"
#include "ScopeTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/ContextAttributesUtils.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Statistics.h"

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr TraceRank rankThatIsOff{1};

// ---- The private operations that a scope and its proxy share

int32 StatusOf(const ActivityScope& scope);
void AddResult(ActivityScope& scope, NameValueList&& attributes);
void SetCustomContext(ActivityScope& scope, NameValueList&& attributes);

template <auto Status>
struct StatusAccess {
    friend int32 StatusOf(const ActivityScope& scope) { return static_cast<int32>(scope.*Status); }
};

template <auto AddResultToScope>
struct ResultAccess {
    friend void AddResult(ActivityScope& scope, NameValueList&& attributes) {
        (scope.*AddResultToScope)(std::move(attributes));
    }
};

template <auto Set>
struct CustomContextAccess {
    friend void SetCustomContext(ActivityScope& scope, NameValueList&& attributes) {
        (scope.*Set)(std::move(attributes));
    }
};

// Names in an explicit instantiation are not checked for access.
template struct StatusAccess<&ActivityScope::m_status>;
template struct ResultAccess<&ActivityScope::AddResultToScope>;
template struct CustomContextAccess<&ActivityScope::SetCustomContext>;

constexpr int32 nothingReported = 0;
constexpr int32 canceled = 2;

/// An open untracked scope whose opening was already seen.
class ActivityScopeAttributesTest : public ScopeTest {
protected:
    ActivityScopeAttributesTest() {
        m_scope = std::make_unique<ActivityScope>("work", TraceType::Untracked);
        m_events->Clear();
    }

    static NameValueList Pairs() { return {{"first", 1}, {u"second", u"two"}, {"first", true}}; }

    void EndScope() { m_scope.reset(); }

    std::unique_ptr<ActivityScope> m_scope;
};

// ---- Add and Log

TEST_F(ActivityScopeAttributesTest, AddSendsTheAttributesUnderANarrowName) {
    m_scope->Add(Pairs());

    EXPECT_THAT(
        m_events->Contents(),
        ElementsAre(SendsPairs("multiNVPs", {{"first", 1}, {u"second", u"two"}, {"first", true}})));
}

TEST_F(ActivityScopeAttributesTest, LogSendsASupplementUnderTheSameName) {
    m_scope->Log(Pairs());

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsSupplement("multiNVPs",
                                            {{"first", 1}, {u"second", u"two"}, {"first", true}})));
}

TEST_F(ActivityScopeAttributesTest, AddAndLogDifferInTheTypeOfTheEventOnly) {
    m_scope->Add(Pairs());
    m_scope->Log(Pairs());

    const std::vector<MetricsEvent> events = m_events->Events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(static_cast<uint32>(events[0].type), 9U);
    EXPECT_EQ(static_cast<uint32>(events[1].type), 11U);
    EXPECT_EQ(events[0].name, events[1].name);
    EXPECT_EQ(events[0].pairs, events[1].pairs);
    EXPECT_EQ(events[0].id, events[1].id);
    EXPECT_EQ(events[0].contextId, events[1].contextId);
    EXPECT_EQ(events[0].flags, events[1].flags);
}

TEST_F(ActivityScopeAttributesTest, EveryCallIsAnEventOfItsOwnInOrder) {
    m_scope->Add({{"a", 1}});
    m_scope->Log({{"b", 2}});
    m_scope->Add({{"a", 3}});

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsPairs("multiNVPs", {{"a", 1}}),
                            SendsSupplement("multiNVPs", {{"b", 2}}),
                            SendsPairs("multiNVPs", {{"a", 3}})));
}

TEST_F(ActivityScopeAttributesTest, AnEmptyListIsSentTooAsNothingElseIsSaid) {
    m_scope->Add({});
    m_scope->Log({});

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsPairs("multiNVPs", {}), SendsSupplement("multiNVPs", {})));
}

TEST_F(ActivityScopeAttributesTest, AddAndLogDoNotChangeTheOutcome) {
    m_scope->Add({{u"rk", u"early-termination"}});
    m_scope->Log({{u"type", u"canceled"}});

    EXPECT_EQ(StatusOf(*m_scope), nothingReported);
}

TEST_F(ActivityScopeAttributesTest, AddingWorksFromAnotherThreadThatHoldsTheScope) {
    OnAnotherThread([this] { m_scope->Add({{"a", 1}}); });

    EXPECT_THAT(m_events->Contents(), ElementsAre(SendsPairs("multiNVPs", {{"a", 1}})));
    EXPECT_EQ(m_events->Events()[0].contextId, m_context.GetId());
}

// ---- Cancel

TEST_F(ActivityScopeAttributesTest, CancelSendsTheCallersPairsBeforeTheOutcome) {
    m_scope->Cancel({{"reason", "deadline"}, {u"rk", u"mine"}});

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsPairs(u"resultAttrs",
                                       {{"reason", "deadline"},
                                        {u"rk", u"mine"},
                                        {u"rk", u"early-termination"},
                                        {u"type", u"canceled"}})));
}

TEST_F(ActivityScopeAttributesTest, CancelWithoutPairsSendsTheTwoPairsOfTheOutcome) {
    m_scope->Cancel({});

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsPairs(u"resultAttrs",
                                       {{u"rk", u"early-termination"}, {u"type", u"canceled"}})));
    EXPECT_EQ(static_cast<uint32>(m_events->Events()[0].type), 9U);
}

TEST_F(ActivityScopeAttributesTest, CancelSetsTheOutcome) {
    m_scope->Cancel({});

    EXPECT_EQ(StatusOf(*m_scope), canceled);
}

TEST_F(ActivityScopeAttributesTest, CancelingAgainReportsAgain) {
    m_scope->Cancel({{"try", 1}});
    m_scope->Cancel({{"try", 2}});

    EXPECT_EQ(m_events->Count(MetricsEventType::NameValuePairs), 2U);
    EXPECT_EQ(StatusOf(*m_scope), canceled);
}

TEST_F(ActivityScopeAttributesTest, ACanceledScopeStillTakesAttributes) {
    m_scope->Cancel({});
    m_events->Clear();

    m_scope->Add({{"a", 1}});

    EXPECT_THAT(m_events->Contents(), ElementsAre(SendsPairs("multiNVPs", {{"a", 1}})));
}

TEST_F(ActivityScopeAttributesTest, AScopeThatNobodyHeardOpeningIsCanceledQuietly) {
    StopListening(m_events);
    ActivityScope scope("unheard");
    const auto late = Listen();

    scope.Cancel({});

    EXPECT_EQ(StatusOf(scope), canceled);
    EXPECT_THAT(late->Contents(), IsEmpty());
}

// ---- Results

TEST_F(ActivityScopeAttributesTest, AResultIsSentUnderAWideName) {
    AddResult(*m_scope, {{u"rk", u"exception"}, {u"msg", u"why"}});

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsPairs(u"resultAttrs", {{u"rk", u"exception"}, {u"msg", u"why"}})));
    EXPECT_EQ(StatusOf(*m_scope), nothingReported);
}

TEST_F(ActivityScopeAttributesTest, TheRecordOfUnwindingHasNarrowTextsAndLeavesTheOutcomeAlone) {
    try {
        const ActivityScope scope("unwound", TraceType::Untracked);
        m_events->Clear();
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::NameValuePairs)), StackUnwind());
}

// ---- Scopes that are off

TEST_F(ActivityScopeAttributesTest, NothingIsSentForAScopeThatIsOffAndItsOutcomeStays) {
    ActivityScope off("off", rankThatIsOff);

    off.Add(Pairs());
    off.Log(Pairs());
    off.Cancel(Pairs());
    off.AddContext(CustomContext(Pairs()));
    AddResult(off, Pairs());

    EXPECT_THAT(m_events->Contents(), IsEmpty());
    EXPECT_EQ(StatusOf(off), nothingReported);
}

TEST_F(ActivityScopeAttributesTest, EveryListIsEmptyAfterwardsWhetherTheScopeIsOnOrOff) {
    ActivityScope off("off", rankThatIsOff);
    StopListening(m_events);
    ActivityScope unheard("unheard", TraceType::Untracked);
    m_events = Listen();

    for (ActivityScope* scope : {m_scope.get(), &off, &unheard}) {
        SCOPED_TRACE(scope == &off ? "off" : scope == &unheard ? "unheard" : "on");
        NameValueList added = Pairs();
        NameValueList logged = Pairs();
        NameValueList reasons = Pairs();
        NameValueList result = Pairs();
        CustomContext context(Pairs());

        scope->Add(std::move(added));
        scope->Log(std::move(logged));
        scope->Cancel(std::move(reasons));
        AddResult(*scope, std::move(result));
        scope->AddContext(std::move(context));

        // Their emptiness after the move is what is promised.
        EXPECT_THAT(added, IsEmpty());               // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(logged, IsEmpty());              // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(reasons, IsEmpty());             // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(result, IsEmpty());              // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(context.attributes, IsEmpty());  // NOLINT(bugprone-use-after-move): promised
    }
}

// ---- AddContext

TEST_F(ActivityScopeAttributesTest, AddContextSendsMappableAttributesAndUndoesThemAfterTheClose) {
    m_scope->AddContext(CustomContext(Pairs()));
    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsContextPairs(
                    u"mctx", {{"first", 1}, {u"second", u"two"}, {"first", true}})));
    m_events->Clear();

    EndScope();

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(ThreadIdEvent(), Closes("work"), PostCloses("work")));
}

TEST_F(ActivityScopeAttributesTest, EachContextThatIsAddedIsUndoneOnce) {
    m_scope->AddContext(CustomContext(NameValueList{{"a", 1}}));
    m_scope->AddContext(CustomContext(NameValueList{}));
    m_scope->AddContext(CustomContext(NameValueList{{"a", 2}}));

    EndScope();

    EXPECT_EQ(m_events->Count(MetricsEventType::AttributePairs), 2U);
    EXPECT_EQ(m_events->Count(MetricsEventType::PostCloseScope), 2U);
}

TEST_F(ActivityScopeAttributesTest, TheContextOfTheConstructorIsUndoneBesideThoseThatAreAdded) {
    {
        ActivityScope scope("inner", CustomContext(NameValueList{{"a", 1}}));
        scope.AddContext(CustomContext(NameValueList{{"b", 1}}));
    }

    EXPECT_EQ(m_events->Count(MetricsEventType::PostCloseScope), 2U);
}

TEST_F(ActivityScopeAttributesTest, AddingAnEmptyContextSendsNothingAndLeavesNothingToUndo) {
    m_scope->AddContext(CustomContext(NameValueList{}));

    EndScope();

    EXPECT_THAT(m_events->Contents(), ElementsAre(ThreadIdEvent(), Closes("work")));
}

TEST_F(ActivityScopeAttributesTest, AContextThatNobodyHeardIsUndoneAllTheSame) {
    StopListening(m_events);
    m_scope->AddContext(CustomContext(NameValueList{{"a", 1}}));
    m_events = Listen();

    EndScope();

    EXPECT_EQ(m_events->Count(MetricsEventType::AttributePairs), 0U);
    EXPECT_EQ(m_events->Count(MetricsEventType::PostCloseScope), 1U);
}

TEST_F(ActivityScopeAttributesTest, AContextIsAddedToTheThreadsContextNotToTheScopes) {
    Metrics::Context current(0, Metrics::Context::Create(true));
    current.OpenScope();
    m_events->Clear();

    m_scope->AddContext(CustomContext(NameValueList{{"a", 1}}));
    EndScope();

    const MetricsEvent added = m_events->First(MetricsEventType::AttributePairs);
    EXPECT_EQ(added.contextId, current.GetId());
    EXPECT_EQ(added.flags, 0x0020000000000000U);
    const MetricsEvent undone = m_events->First(MetricsEventType::PostCloseScope);
    EXPECT_EQ(undone.contextId, m_context.GetId());
    EXPECT_EQ(undone.value.type, Metrics::MetricsValue::MV_Int64);
    EXPECT_EQ(undone.value.integer, 0);
}

TEST_F(ActivityScopeAttributesTest, AContextThatIsAddedOnAThreadWithoutOneIsNotSent) {
    OnAnotherThread([this] { m_scope->AddContext(CustomContext(NameValueList{{"a", 1}})); });

    EndScope();

    EXPECT_EQ(m_events->Count(MetricsEventType::AttributePairs), 0U);
    EXPECT_EQ(m_events->Count(MetricsEventType::PostCloseScope), 1U);
}

TEST_F(ActivityScopeAttributesTest, OnlyAddContextAsksWhetherTheScopeIsOff) {
    ActivityScope off("off", rankThatIsOff);

    SetCustomContext(off, {{"a", 1}});

    EXPECT_THAT(m_events->Contents(), ElementsAre(SendsContextPairs(u"mctx", {{"a", 1}})));
}

// ---- When memory runs out

TEST_F(ActivityScopeAttributesTest, AnOperationThatFindsNoMemoryRaisesAndKeepsTheScopeWhole) {
    StopListening(m_events);
    const RefCntPtr<CountingListener> ear(new CountingListener);
    Metrics::MetricsManager::GetInstance().AddConsumer(ear, Metrics::flagTracing, true);

    struct Operation {
        const char* name;
        void (*run)(ActivityScope&, NameValueList&&);
        bool surelyAllocates;
    };

    const Operation operations[] = {
        {"Add", [](ActivityScope& s, NameValueList&& list) { s.Add(std::move(list)); }, false},
        {"Log", [](ActivityScope& s, NameValueList&& list) { s.Log(std::move(list)); }, false},
        {"Cancel", [](ActivityScope& s, NameValueList&& list) { s.Cancel(std::move(list)); }, true},
        {"AddContext",
         [](ActivityScope& s, NameValueList&& list) {
             s.AddContext(CustomContext(std::move(list)));
         },
         true},
    };

    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        int raised = 0;
        for (uint64 number = 0; number < 100; ++number) {
            NameValueList list = Pairs();
            const uint64 lostBefore = Metrics::GetBusStatistics().lostEvents;
            bool threw = false;
            bool failed = false;
            {
                const FailingAllocation failing(number);
                try {
                    operation.run(*m_scope, std::move(list));
                } catch (const std::bad_alloc&) {
                    threw = true;
                }
                failed = failing.HasFailed();
            }
            raised += threw ? 1 : 0;
            const bool lost = Metrics::GetBusStatistics().lostEvents > lostBefore;
            EXPECT_EQ(failed, threw || lost) << "allocation " << number;
            // Its emptiness after the move is what is promised.
            // NOLINTNEXTLINE(bugprone-use-after-move): promised
            EXPECT_THAT(list, IsEmpty()) << "allocation " << number;
            if (!failed) {
                break;
            }
        }
        if (operation.surelyAllocates) {
            EXPECT_GE(raised, 1);
        }
    }
    Metrics::MetricsManager::GetInstance().RemoveConsumer(ear);
    m_events = Listen();

    m_scope->Add({{"a", 1}});
    EndScope();

    EXPECT_THAT(m_events->Contents(), Contains(SendsPairs("multiNVPs", {{"a", 1}})));
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
}

TEST_F(ActivityScopeAttributesTest, AContextThatCouldNotBeAddedForLackOfMemoryIsNotUndone) {
    StopListening(m_events);
    const RefCntPtr<CountingListener> ear(new CountingListener);
    Metrics::MetricsManager::GetInstance().AddConsumer(ear, Metrics::flagTracing, true);
    ActivityScope& scope = *m_scope;
    bool succeeded = false;
    int raised = 0;

    for (uint64 number = 0; number < 50 && !succeeded; ++number) {
        CustomContext context(Pairs());
        const FailingAllocation failing(number);
        try {
            scope.AddContext(std::move(context));
            succeeded = true;
        } catch (const std::bad_alloc&) {
            ++raised;
        }
    }
    EndScope();
    Metrics::MetricsManager::GetInstance().RemoveConsumer(ear);

    EXPECT_TRUE(succeeded);
    EXPECT_GE(raised, 1);
    EXPECT_EQ(ear->Count(MetricsEventType::AttributePairs), 1);
    EXPECT_EQ(ear->Count(MetricsEventType::PostCloseScope), 1);
}

}  // namespace
}  // namespace tarn::test
