#include "BusDuel.h"
#include "Environment.h"
#include "StreamGenerator.h"

#include "cvlmetrics/MetricsManager.h"

#include <cstddef>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The monitor against its model, over random streams that the bus delivers. The variables of
// MonitorModelTest.cpp hold here, too.
namespace model {
namespace {

using tarn::test::NumberFromEnvironment;
using testing::HasSubstr;

constexpr uint64 defaultSeed = 20260301;
constexpr uint64 defaultEvents = 20000;

class BusModelTest : public testing::TestWithParam<Family> {
protected:
    ~BusModelTest() override {
        EXPECT_EQ(Metrics::MetricsManager::GetInstance().GetConsumerCount(), 0U);
    }
};

TEST_P(BusModelTest, AgreesOnEventsThatTheBusDelivers) {
    const uint64 seed = NumberFromEnvironment("TARN_MODEL_SEED").value_or(defaultSeed);
    const uint64 wanted = NumberFromEnvironment("TARN_MODEL_EVENTS").value_or(defaultEvents);

    Sightings seen;
    for (uint64 number = 0; seen.events < wanted; ++number) {
        const Stream stream = GenerateStream(GetParam(), seed, number);
        if (const auto parting = RunStreamOnTheBus(stream, &seen)) {
            FAIL() << "seed " << seed << ", stream " << number << ", step " << parting->step << ", "
                   << parting->difference.field << "\n  model:   " << parting->difference.expected
                   << "\n  library: " << parting->difference.actual;
        }
    }

    EXPECT_GT(seen.beginEvents, wanted / 20);
    EXPECT_GT(seen.endEvents, wanted / 20);
    EXPECT_GT(seen.manyAttributes, 0U);
    EXPECT_GT(seen.callbackErrors, 0U);
    if (GetParam() == Family::WrongKinds) {
        EXPECT_GT(seen.sinkErrors, 0U);
        EXPECT_GT(seen.conversionErrors, 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(
    ,
    BusModelTest,
    testing::Values(Family::Plain, Family::Foreground, Family::WrongKinds, Family::Everything),
    [](const testing::TestParamInfo<Family>& family) {
        switch (family.param) {
            case Family::Plain:
                return "Plain";
            case Family::Foreground:
                return "Foreground";
            case Family::WrongKinds:
                return "WrongKinds";
            default:
                return "Everything";
        }
    });

// ---- That the run finds differences

Stream SomeStream() {
    return GenerateStream(Family::Plain, defaultSeed, 0);
}

TEST(BusModelCheckerTest, ALineThatTheMonitorWritesOtherwiseIsFound) {
    bool hasTampered = false;
    const auto parting = RunStreamOnTheBus(
        SomeStream(), nullptr, {{}, [&hasTampered](std::size_t, Observation& observation) {
                                    for (Entry& entry : observation.journal) {
                                        if (entry.kind == Entry::Kind::ActivityEvent) {
                                            entry.lineDifference = "two fields of one name";
                                            hasTampered = true;
                                        }
                                    }
                                }});

    ASSERT_TRUE(hasTampered);
    ASSERT_TRUE(parting.has_value());
    EXPECT_THAT(parting->difference.field, HasSubstr(".line"));
}

TEST(BusModelCheckerTest, AnEventThatReachesTheTwoConsumersDifferentlyIsFound) {
    bool hasTampered = false;
    const auto parting =
        RunStreamOnTheBus(SomeStream(),
                          nullptr,
                          {[&hasTampered](std::size_t, Metrics::MetricsEvent& event) {
                               if (event.type == Metrics::MetricsEventType::OpenScope) {
                                   event.name = "another";
                                   hasTampered = true;
                               }
                           },
                           {}});

    ASSERT_TRUE(hasTampered);
    ASSERT_TRUE(parting.has_value());
    EXPECT_THAT(parting->difference.field, HasSubstr("name"));
}

}  // namespace
}  // namespace model
