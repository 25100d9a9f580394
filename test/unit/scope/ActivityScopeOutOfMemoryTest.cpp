#include "AllocationCounter.h"
#include "ScopeTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/MetricsManager.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
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
using testing::AllOf;
using testing::Contains;

ThreadActivityRegistry& Registry() {
    return ThreadActivityRegistry::GetInstance();
}

// Hands on to a recorder, whose own allocations never fail.
class UnfailingListener : public Metrics::IMetricsListener {
public:
    explicit UnfailingListener(RefCntPtr<RecordingListener> recorder)
        : m_recorder(std::move(recorder)) {}

    void OnMetricsEvent(const MetricsEvent& event) override {
        const UnfailingAllocations unfailing;
        m_recorder->OnMetricsEvent(event);
    }

private:
    RefCntPtr<RecordingListener> m_recorder;
};

class ActivityScopeOutOfMemoryTest : public ScopeTest {
protected:
    ActivityScopeOutOfMemoryTest() {
        StopListening(m_events);
        Metrics::MetricsManager::GetInstance().AddConsumer(m_listener, Metrics::flagTracing, true);
    }

    ~ActivityScopeOutOfMemoryTest() override {
        Metrics::MetricsManager::GetInstance().RemoveConsumer(m_listener);
    }

    /// Constructs the scope again and again, each time failing one allocation later. Returns how
    /// often the construction threw.
    template <class Construct>
    int FailEachAllocation(Construct construct) {
        int thrown = 0;
        for (uint64 number = 0; number < 500; ++number) {
            SCOPED_TRACE("allocation " + std::to_string(number));
            m_events->Clear();
            std::optional<ActivityScope> scope;
            bool failed = false;
            bool threw = false;
            std::size_t bytes = 0;
            {
                const FailingAllocation failing(number);
                try {
                    construct(scope);
                } catch (const std::bad_alloc&) {
                    threw = true;
                }
                failed = failing.HasFailed();
                bytes = failing.FailedBytes();
            }
            if (threw) {
                ++thrown;
                ExpectNothingButOpeningsAndClosings();
                m_leftContexts.push_back(Registry().GetDepth());
                m_failedBytes.push_back(bytes);
                EXPECT_LE(Registry().GetDepth(), 1U);
                Registry().Remove(Registry().GetCurrentContext());
            }
            scope.reset();
            EXPECT_EQ(CurrentMemoryFrame(), nullptr);
            EXPECT_EQ(Registry().GetDepth(), 0U);
            EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope),
                      m_events->Count(MetricsEventType::CloseScope));
            if (!failed) {
                return thrown;
            }
        }
        ADD_FAILURE() << "every allocation failed";
        return thrown;
    }

    void ExpectNothingButOpeningsAndClosings() {
        EXPECT_EQ(m_events->Count(MetricsEventType::NameValue), 0U) << "no thread id";
        EXPECT_EQ(m_events->Count(MetricsEventType::NameValuePairs), 0U) << "no result or figures";
        EXPECT_EQ(m_events->Count(MetricsEventType::PostCloseScope), 0U);
    }

    const RefCntPtr<Metrics::IMetricsListener> m_listener{new UnfailingListener(m_events)};

    /// How many contexts each failed construction left on the thread.
    std::vector<std::size_t> m_leftContexts;

    /// What each of them asked for in vain.
    std::vector<std::size_t> m_failedBytes;
};

TEST_F(ActivityScopeOutOfMemoryTest, AScopeThatFindsNoMemoryUndoesItsMembersAndSaysNoMore) {
    // Longer than any text that its thread has kept.
    const std::string name(1000, 'n');

    const int thrown = FailEachAllocation(
        [&name](std::optional<ActivityScope>& scope) { scope.emplace(name.c_str()); });

    EXPECT_GE(thrown, 1) << "the name, which the end event says again";
}

TEST_F(ActivityScopeOutOfMemoryTest, AContextThatWasPushedStaysWhenALaterStepFindsNoMemory) {
    SwitchForegroundContextsOn();

    FailEachAllocation([](std::optional<ActivityScope>& scope) {
        NameValueList attributes;
        CustomContext custom(NameValueList{});
        {
            const UnfailingAllocations unfailing;
            // More than a scope has room for: whatever its thread has kept, these need memory.
            attributes.assign(20, {"a", 1});
            custom = CustomContext(NameValueList{{"c", u"custom"}});
        }
        scope.emplace(
            "a rather long name of a scope", std::move(custom), Traits(), std::move(attributes));
    });

    EXPECT_THAT(m_leftContexts, AllOf(Contains(0U), Contains(1U)));
    EXPECT_TRUE(std::is_sorted(m_leftContexts.begin(), m_leftContexts.end()))
        << "nothing is popped once it was pushed";
}

TEST_F(ActivityScopeOutOfMemoryTest, TheContextIsPushedBeforeItsPairsAreWritten) {
    SwitchForegroundContextsOn();
    // With the six pairs more than a scope ordinarily has.
    constexpr std::size_t many = 20;
    constexpr std::size_t bytesForAll = (many + 6) * sizeof(Metrics::PairView);
    // What a thread's first scope allocates, it keeps for the next.
    { const ActivityScope first("load"); }

    FailEachAllocation([](std::optional<ActivityScope>& scope) {
        NameValueList attributes;
        {
            const UnfailingAllocations unfailing;
            attributes.assign(many, {"name", 1});
        }
        scope.emplace("load", std::move(attributes));
    });

    int failedForThePairs = 0;
    for (std::size_t i = 0; i < m_failedBytes.size(); ++i) {
        if (m_failedBytes[i] == bytesForAll) {
            EXPECT_EQ(m_leftContexts[i], 1U) << "failed for " << m_failedBytes[i] << " bytes";
            ++failedForThePairs;
        }
    }
    EXPECT_GE(failedForThePairs, 1);
}

TEST_F(ActivityScopeOutOfMemoryTest, AFirstScopeThatFindsNoMemoryLeavesTheThreadWithoutAContext) {
    OnAnotherThread([this] {
        const int thrown =
            FailEachAllocation([](std::optional<ActivityScope>& scope) { scope.emplace("load"); });

        EXPECT_GE(thrown, 3);
        EXPECT_EQ(CurrentMetricsContext(), 0U);
    });
}

TEST_F(ActivityScopeOutOfMemoryTest, AnAdoptingScopeThatFindsNoMemoryKeepsTheGivenContextIntact) {
    SwitchForegroundContextsOn();
    const auto given = SomeContext(2, 5);

    FailEachAllocation([&given](std::optional<ActivityScope>& scope) {
        scope.emplace("load",
                      CustomContext(NameValueList{}),
                      Traits(),
                      NameValueList{},
                      ActivityContextInitializer{given, true});
    });

    EXPECT_EQ(given.use_count(), 1);
    EXPECT_EQ(given->GetActivityId(), TString(u"some activity"));
}

TEST_F(ActivityScopeOutOfMemoryTest, AScopeThatFindsNoMemoryAtItsEndStillClosesAndGoes) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);
    int failures = 0;
    bool failed = true;

    for (uint64 number = 0; failed && number < 500; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        m_events->Clear();
        auto scope =
            std::make_unique<ActivityScope>("load", CustomContext(NameValueList{{"c", 1}}));
        {
            const FailingAllocation failing(number);
            scope.reset();
            failed = failing.HasFailed();
        }
        failures += failed ? 1 : 0;
        EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
        EXPECT_EQ(Registry().GetDepth(), 0U);
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    }

    EXPECT_GE(failures, 2) << "the lists of the figures of memory and processor time";
    EXPECT_FALSE(failed);
}

TEST_F(ActivityScopeOutOfMemoryTest, AnEarlyTerminationThatFindsNoMemoryIsNotReported) {
    bool failed = true;
    bool reported = false;

    for (uint64 number = 0; failed && number < 500; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        m_events->Clear();
        std::optional<FailingAllocation> failing;
        try {
            const ActivityScope scope("load", TraceType::Untracked);
            failing.emplace(number);
            throw 0;  // a number needs no memory of its own
        } catch (int) {
            failed = failing->HasFailed();
            failing.reset();
        }
        const auto texts = m_events->Contents();
        const bool reportedNow = std::count(texts.begin(), texts.end(), StackUnwind()) == 1;
        if (number == 0) {
            EXPECT_FALSE(reportedNow);
        }
        reported = reportedNow;
        EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
    }

    EXPECT_TRUE(reported) << "once there is memory enough";
    EXPECT_FALSE(failed);
}

}  // namespace
}  // namespace tarn::test
