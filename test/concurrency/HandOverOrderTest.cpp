#include "BusEvents.h"
#include "TarnTest.h"
#include "TaskQueue.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/Traits.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/host/Delivery.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;

/// A thread that does what it is told, one thing after the other.
class Worker {
public:
    ~Worker() {
        m_tasks.Close();
        m_thread.join();
    }

    Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Returns when it is done: whatever another worker does next, it does after this.
    void Do(std::function<void()> work) { m_tasks.Do(std::move(work)); }

private:
    stress::TaskQueue m_tasks;
    std::thread m_thread{[this] { m_tasks.WorkOff(); }};
};

/// Threads emit in turns while nothing is delivered, so that all of it lies in their queues, and no
/// luck is needed to have several to choose from when delivery goes on. Any order but the one of
/// emission shows: of the queues one by one, in whichever sequence, or of one event of each in
/// turns.
class HandOverOrderTest : public tarn::test::TarnTest {
protected:
    // One letter for each step: which thread takes it.
    static constexpr std::string_view turns = "ABABBAABCACBBCACCBAABCBA";

    void SetUp() override {
        OptTarn::SetIsTarnEnabled(true);
        // Other tests of this program find the queues, and want them small.
        Metrics::SetDelivery(
            {.mode = Metrics::DeliveryMode::Asynchronous, .queueBytes = std::size_t{32} << 10});
        m_listener = Listen();
        m_listener->CallOnEach([this](const MetricsEvent&) {
            if (m_isToStop) {
                m_isToStop = false;
                m_hasStopped.set_value();
                m_goOn.wait_for(timeout);
            }
        });
        StopDelivery();
    }

    void TearDown() override {
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        Metrics::SetDelivery({});
    }

    /// The numbers that the steps gave, in the order of their arrival.
    std::vector<int64> TakeTurns(const std::function<void(int64 number)>& step) {
        int64 number = 0;
        for (const char turn : turns) {
            m_workers[static_cast<std::size_t>(turn - 'A')].Do([&] { step(number); });
            ++number;
        }
        m_goesOn.set_value();
        EXPECT_TRUE(Metrics::Flush(timeout));
        std::vector<int64> arrived;
        for (const MetricsEvent& event : m_listener->Events()) {
            if (event.name == "step") {
                arrived.push_back(event.value.integer);
            }
            for (const auto& [name, value] : event.pairs) {
                if (name == "step") {
                    arrived.push_back(value.integer);
                }
            }
        }
        return arrived;
    }

    static std::vector<int64> InOrder() {
        std::vector<int64> numbers(turns.size());
        std::iota(numbers.begin(), numbers.end(), 0);
        return numbers;
    }

private:
    static constexpr std::chrono::seconds timeout{30};

    void StopDelivery() {
        m_isToStop = true;
        tarn::test::OnAnotherThread([] {
            Metrics::Context context(0, Metrics::Context::Create(true));
            context.OpenScope();
        });
        ASSERT_EQ(m_hasStopped.get_future().wait_for(timeout), std::future_status::ready);
    }

    std::array<Worker, 3> m_workers;
    RefCntPtr<tarn::test::RecordingListener> m_listener;
    std::atomic<bool> m_isToStop{false};
    std::promise<void> m_hasStopped;
    std::promise<void> m_goesOn;
    const std::future<void> m_goOn = m_goesOn.get_future();
};

TEST_F(HandOverOrderTest, EventsOfAContextArriveAsTheyWereEmittedWhicheverThreadsItWasOn) {
    Metrics::Context context(0, Metrics::Context::Create(true));
    context.OpenScope();
    Metrics::Scope scope(Metrics::flagTracing);
    scope.OpenImpl("wanderer");
    context.DetachFromThread();

    const std::vector<int64> arrived = TakeTurns([&](int64 number) {
        context.AttachToThread();
        scope.EmitImpl(MetricsEventType::NameValue, "step", number);
        context.DetachFromThread();
    });

    EXPECT_EQ(arrived, InOrder());
}

TEST_F(HandOverOrderTest, EventsOfAScopeArriveAsTheyWereEmittedWhicheverThreadsItWasOn) {
    std::optional<tarn::ActivityScope> scope;
    scope.emplace("wanderer", tarn::TraceType::Untracked);
    scope->DetachFromThread();

    const std::vector<int64> arrived = TakeTurns([&](int64 number) {
        scope->AttachToThread();
        scope->Add({{"step", number}});
        scope->DetachFromThread();
    });
    scope.reset();

    EXPECT_EQ(arrived, InOrder());
}

// Causes come before their effects: what a thread does after it has seen what another one did.
TEST_F(HandOverOrderTest, EventsOfSeveralContextsArriveAsTheyWereEmittedAfterEachOther) {
    const std::vector<int64> arrived = TakeTurns([](int64 number) {
        const tarn::ActivityScope scope("own", {{"step", number}});
    });

    EXPECT_EQ(arrived, InOrder());
}

}  // namespace
