#include "DeliveringThreadModel.h"
#include "Interleavings.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using DeliveringThreadProtocol::Broken;
using DeliveringThreadProtocol::Cast;
using DeliveringThreadProtocol::Model;
using tarn::test::Interleavings;
using tarn::test::RunAllInterleavings;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<Cast>& AllCasts() {
    // The smaller ones first: most broken rules show there.
    static const auto& casts = *new std::vector<Cast>{
        {.emitters = 1, .eventsOfEach = 2},
        {.emitters = 2, .eventsOfEach = 1},
        {.emitters = 1, .eventsOfEach = 2, .hasDeliverer = true},
        {.emitters = 1, .eventsOfEach = 2, .hasFlusher = true, .flusherShutsDown = true},
        {.emitters = 1, .eventsOfEach = 2, .hasFlusher = true},
        {.emitters = 2, .eventsOfEach = 1, .hasFlusher = true, .flusherShutsDown = true},
        {.emitters = 1,
         .eventsOfEach = 1,
         .hasDeliverer = true,
         .hasFlusher = true,
         .flusherShutsDown = true,
         .threadRuns = true},
        {.emitters = 1,
         .eventsOfEach = 1,
         .hasDeliverer = true,
         .hasFlusher = true,
         .flusherShutsDown = true,
         .threadRuns = true,
         .hasFlushed = true,
         .hasStopper = true},
        {.emitters = 1, .eventsOfEach = 1, .hasFlusher = true, .hasStopper = true},
        {.emitters = 1, .eventsOfEach = 2, .hasDeliverer = true, .hasFlusher = true}};
    return casts;
}

std::string FirstError(Broken rule) {
    for (const Cast& cast : AllCasts()) {
        const Interleavings result = RunAllInterleavings(Model(rule, cast));
        if (!result.error.empty()) {
            return result.error;
        }
    }
    return "";
}

TEST(DeliveringThreadProtocolTest, NoEventNoFlushAndNoStopIsLostInAnyOrderOfSteps) {
    for (const Cast& cast : AllCasts()) {
        const Interleavings result = RunAllInterleavings(Model(Broken::None, cast));

        EXPECT_THAT(result.error, IsEmpty()) << testing::PrintToString(result.schedule);
        EXPECT_GT(result.states, 50U);
    }
}

class BrokenRuleTest : public testing::TestWithParam<Broken> {};

INSTANTIATE_TEST_SUITE_P(Each,
                         BrokenRuleTest,
                         testing::Values(Broken::ThreadSleepsWithoutLookingForEvents,
                                         Broken::ThreadSleepsWithoutLookingForFlushes,
                                         Broken::ThreadSaysThatItSleepsAfterItHasLooked,
                                         Broken::ThreadReadsTheAlarmAfterItHasLooked,
                                         Broken::EmitterLooksAtTheThreadBeforeItHasItsTicket,
                                         Broken::EmitterWakesWithoutAlarm,
                                         Broken::EmitterTakesAThreadThatIsOverForOneThatRuns,
                                         Broken::EmitterStartsAThreadThatIsNotWantedAnyMore,
                                         Broken::FlushDoesNotWaitForOtherDeliveries,
                                         Broken::ShutdownDoesNotWaitForOtherDeliveries,
                                         Broken::FlushIsAskedOfAThreadWithoutItsMutex,
                                         Broken::FlushRaisesNoAlarm,
                                         Broken::FlushReadsTheProgressAfterItHasLooked,
                                         Broken::ThreadTellsNoProgress,
                                         Broken::ThreadEndsWithoutLookingForEvents,
                                         Broken::ThreadEndsWithoutLookingForFlushes,
                                         Broken::StopIsNotSaidToTheThread));

TEST_P(BrokenRuleTest, IsNoticed) {
    EXPECT_THAT(FirstError(GetParam()), Not(IsEmpty()));
}

TEST(DeliveringThreadProtocolTest, AFlushThatDoesNotWaitForOthersIsDoneBeforeItsEventsAre) {
    EXPECT_THAT(FirstError(Broken::FlushDoesNotWaitForOtherDeliveries),
                HasSubstr("before the events are"));
}

TEST(DeliveringThreadProtocolTest, AShutdownThatDoesNotWaitForOthersIsDoneBeforeTheEventsAre) {
    EXPECT_THAT(FirstError(Broken::ShutdownDoesNotWaitForOtherDeliveries),
                HasSubstr("a shutdown is done before the events are"));
}

}  // namespace
