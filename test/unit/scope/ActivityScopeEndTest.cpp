#include "ActivityScopeLifecycleTest.h"

#include "tarn/ActivityScope.h"

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// ---- Early termination

TEST_F(ActivityScopeLifecycleTest, AScopeThatAnExceptionEndsReportsEarlyTermination) {
    try {
        const ActivityScope scope("load", TraceType::Untracked);
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(Opens("load"), StackUnwind(), ThreadIdEvent(), Closes("load")));
}

TEST_F(ActivityScopeLifecycleTest, EveryScopeThatTheExceptionPassesReports) {
    try {
        const ActivityScope outer("outer");
        const ActivityScope inner("inner");
        throw std::runtime_error("ends both scopes");
    } catch (const std::runtime_error&) {
    }

    const auto texts = m_events->Contents();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), StackUnwind()), 2);
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatEndsAfterTheExceptionWasCaughtReportsNothing) {
    {
        const ActivityScope scope("load");
        try {
            throw std::runtime_error("is caught within");
        } catch (const std::runtime_error&) {
            const ActivityScope handling("handling");
        }
    }

    EXPECT_THAT(m_events->Contents(), Not(Contains(StackUnwind())));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatEndsEarlyAfterCancelReportsNothingMore) {
    try {
        ActivityScope scope("load", TraceType::Untracked);
        scope.Cancel({});
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Contents(), Not(Contains(StackUnwind())));
    EXPECT_EQ(m_events->Count(MetricsEventType::NameValuePairs), 1U);
}

// Works while an exception is under way.
struct WorksInItsDestructor {
    ~WorksInItsDestructor() { const ActivityScope scope("clean up", TraceType::Untracked); }
};

TEST_F(ActivityScopeLifecycleTest, AScopeThatLivesWithinUnwindingReportsEarlyTerminationToo) {
    try {
        const WorksInItsDestructor worker;
        throw std::runtime_error("runs the destructor");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(Opens("clean up"), StackUnwind(), ThreadIdEvent(), Closes("clean up")));
}

TEST_F(ActivityScopeLifecycleTest, AnExceptionOnAnotherThreadDoesNotMatter) {
    std::unique_ptr<ActivityScope> scope;

    struct ClosesOnAnotherThread {
        std::unique_ptr<ActivityScope>& scope;

        ~ClosesOnAnotherThread() {
            OnAnotherThread([this] { scope.reset(); });
        }
    };

    scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);

    try {
        const ClosesOnAnotherThread closer{scope};
        throw std::runtime_error("is under way here only");
    } catch (const std::runtime_error&) {
    }

    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
    EXPECT_THAT(m_events->Contents(), Not(Contains(StackUnwind())));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsNotOpenReportsNoEarlyTermination) {
    StopListening(m_events);
    RefCntPtr<RecordingListener> late;
    try {
        const ActivityScope scope("load");
        late = Listen();
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(late->Contents(), IsEmpty());
}

// ---- Scopes that end in another order or on another thread

TEST_F(ActivityScopeLifecycleTest, ClosingTheOuterScopeFirstKeepsTheInnerOnTop) {
    SwitchForegroundContextsOn();
    auto outer = std::make_unique<ActivityScope>("outer", TraceType::Untracked);
    const ActivityScope inner("inner", TraceType::Untracked);

    outer.reset();

    EXPECT_EQ(Registry().GetCurrentContext(), inner.GetActivityContext());
    EXPECT_EQ(Registry().GetDepth(), 1U);
}

TEST_F(ActivityScopeLifecycleTest, TheThreadIdIsTheOneOfTheThreadThatClosesTheScope) {
    auto scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);
    const EventContent openingThread = ThreadIdEvent();
    EventContent closingThread;

    OnAnotherThread([&] {
        closingThread = ThreadIdEvent();
        scope.reset();
    });

    EXPECT_NE(closingThread, openingThread);
    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load"), closingThread, Closes("load")));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatEndsOnAnotherThreadLeavesItsEntryOnTheFirst) {
    SwitchForegroundContextsOn();
    auto scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);
    const auto context = scope->GetActivityContext();

    OnAnotherThread([&] {
        const auto other = std::make_shared<ActivityContext>();
        Registry().Push(other);
        scope.reset();
        EXPECT_EQ(Registry().GetDepth(), 1U);
        EXPECT_EQ(Registry().GetCurrentContext(), other);
    });

    EXPECT_EQ(Registry().GetCurrentContext(), context);
    EXPECT_EQ(Registry().GetDepth(), 1U);
    Registry().Remove(context);
}

// ---- Threads

TEST_F(ActivityScopeLifecycleTest, ScopesOfTwoThreadsAreTreesOfTheirOwn) {
    SwitchForegroundContextsOn();
    const ActivityScope here("here");
    TString rootThere;

    OnAnotherThread([&rootThere] {
        const ActivityScope there("there");
        const ActivityScope inner("inner");
        rootThere = inner.GetActivityContext()->GetRootId();
        EXPECT_EQ(rootThere, there.GetActivityContext()->GetRootId());
        EXPECT_EQ(Registry().GetDepth(), 2U);
    });

    EXPECT_NE(rootThere, here.GetActivityContext()->GetRootId());
    EXPECT_EQ(Registry().GetDepth(), 1U);
}

TEST_F(ActivityScopeLifecycleTest, ThreadsThatTraceAtOnceEachSendWellNestedScopes) {
    SwitchForegroundContextsOn();
    constexpr int threadCount = 4;
    constexpr int perThread = 500;

    OnThreadsAtOnce(threadCount, [](int) {
        for (int n = 0; n < perThread; ++n) {
            const ActivityScope outer("outer", {{"n", n}});
            ActivityScope inner("inner");
            inner.Add({{"n", n}});
        }
    });

    std::map<uint64, std::vector<uint64>> open;
    int closed = 0;
    for (const MetricsEvent& event : m_events->Events()) {
        std::vector<uint64>& stack = open[event.contextId];
        if (event.type == MetricsEventType::OpenScope) {
            stack.push_back(event.id);
        } else if (event.type == MetricsEventType::CloseScope) {
            ASSERT_FALSE(stack.empty());
            EXPECT_EQ(stack.back(), event.id);
            stack.pop_back();
            ++closed;
        } else if (event.type == MetricsEventType::NameValue ||
                   event.type == MetricsEventType::NameValuePairs) {
            ASSERT_FALSE(stack.empty());
            EXPECT_EQ(stack.back(), event.id);
        }
    }
    EXPECT_EQ(closed, threadCount * perThread * 2);
}

}  // namespace
}  // namespace tarn::test
