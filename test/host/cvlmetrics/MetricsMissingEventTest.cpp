// What becomes of the order of events when one of them never comes. The queues are compiled in once
// more, with what they keep to themselves: a thread that stops between drawing a ticket and showing
// its event cannot be had otherwise.
#include "EventQueues.cpp"
#include "Threads.h"

#include "cvlmetrics/MetricsEvent.h"

#include <optional>

#include <gtest/gtest.h>

namespace {

using Metrics::EventRecord;
using Metrics::EventView;
using Metrics::MetricsEventType;
namespace EventQueues = Metrics::EventQueues;

EventView Event(uint64 id) {
    EventView event;
    event.id = id;
    event.type = MetricsEventType::OpenScope;
    return event;
}

void Emit(uint64 id) {
    ASSERT_EQ(EventQueues::Append(Event(id)), EventQueues::Outcome::Queued);
}

void EmitOnAnotherThread(uint64 id) {
    tarn::test::OnAnotherThread([id] { Emit(id); });
}

/// As of a thread that crashes before it shows its event.
uint64 DrawTicketInVain() {
    return EventQueues::s_tickets.fetch_add(1);
}

/// The id of the next event, which is taken off.
std::optional<uint64> Take() {
    EventRecord* const record = EventQueues::Next();
    if (record == nullptr) {
        return std::nullopt;
    }
    const uint64 id = record->GetHead().id;
    EventQueues::Pop();
    return id;
}

bool IsAllTaken() {
    return EventQueues::GetTakenCount() == EventQueues::GetQueuedCount();
}

TEST(MetricsMissingEventTest, WhatFollowsAMissingEventWaitsUntilThatIsPassedOver) {
    Emit(1);
    DrawTicketInVain();
    DrawTicketInVain();
    EmitOnAnotherThread(2);
    Emit(3);

    EXPECT_EQ(Take(), 1U);
    EXPECT_EQ(Take(), std::nullopt);
    EventQueues::PassOverMissing();

    EXPECT_EQ(Take(), 2U);
    EXPECT_EQ(Take(), 3U);
    EXPECT_EQ(Take(), std::nullopt);
    EXPECT_TRUE(IsAllTaken());
}

TEST(MetricsMissingEventTest, NothingThatIsThereIsPassedOver) {
    Emit(1);
    EmitOnAnotherThread(2);

    EventQueues::PassOverMissing();
    EXPECT_EQ(Take(), 1U);
    EventQueues::PassOverMissing();
    EXPECT_EQ(Take(), 2U);

    EventQueues::PassOverMissing();
    EXPECT_TRUE(IsAllTaken());
}

TEST(MetricsMissingEventTest, WhereNothingFollowsTheNextEventThatComesGoesOn) {
    DrawTicketInVain();
    EXPECT_EQ(Take(), std::nullopt);

    EventQueues::PassOverMissing();
    EXPECT_TRUE(IsAllTaken());
    Emit(1);

    EXPECT_EQ(Take(), 1U);
}

TEST(MetricsMissingEventTest, OneThatComesAfterAllStaysQueuedAndHoldsUpNobody) {
    const uint64 late = DrawTicketInVain();
    Emit(1);
    EventQueues::PassOverMissing();
    Metrics::EventQueue& queue = EventQueues::Registry::Get().Acquire();
    ASSERT_TRUE(queue.Prepare(Event(99)));
    queue.Publish(late);

    EXPECT_EQ(Take(), 1U);
    Emit(2);
    EXPECT_EQ(Take(), 2U);
    DrawTicketInVain();
    Emit(3);
    EXPECT_EQ(Take(), std::nullopt);
    EventQueues::PassOverMissing();

    EXPECT_EQ(Take(), 3U) << "another one that is missing is passed over as well";
    EXPECT_TRUE(IsAllTaken());
}

}  // namespace
