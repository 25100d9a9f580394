#include "tarn/Traits.h"

#include "TarnTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"

#include <cstring>
#include <limits>
#include <type_traits>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEventType;

constexpr TraceRank highRank = TraceRank{7};

class TraitsTest : public TarnTest {};

void ExpectTraits(const Traits& traits, TraceType type, TraceRank rank, uint64 flags) {
    EXPECT_EQ(traits.type, type);
    EXPECT_EQ(traits.rank, rank);
    EXPECT_EQ(traits.flags, flags);
}

TEST_F(TraitsTest, ConstructorsLeaveAtZeroWhatTheyAreNotGiven) {
    ExpectTraits(Traits(), TraceType::Normal, TraceRank::Default, 0);
    ExpectTraits(Traits(highRank), TraceType::Normal, highRank, 0);
    ExpectTraits(Traits(highRank, 0x10), TraceType::Normal, highRank, 0x10);
    ExpectTraits(Traits(TraceType::Untracked), TraceType::Untracked, TraceRank::Default, 0);
    ExpectTraits(Traits(TraceType::Untracked, highRank), TraceType::Untracked, highRank, 0);
    ExpectTraits(
        Traits(TraceType::Untracked, highRank, 0x10), TraceType::Untracked, highRank, 0x10);
    ExpectTraits(
        Traits(TraceType::Untracked, 0x10), TraceType::Untracked, TraceRank::Default, 0x10);
    ExpectTraits(Traits(0x10), TraceType::Normal, TraceRank::Default, 0x10);
}

TEST_F(TraitsTest, ATypeARankOrFlagsAloneAreTraits) {
    EXPECT_TRUE((std::is_convertible_v<TraceType, Traits>));
    EXPECT_TRUE((std::is_convertible_v<TraceRank, Traits>));
    EXPECT_TRUE((std::is_convertible_v<uint64, Traits>));
}

TEST_F(TraitsTest, TypesAndRanksAreEnumerationsOf32SignedBitsThatDoNotTurnIntoNumbers) {
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<TraceType>, int32>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<TraceRank>, int32>));
    EXPECT_FALSE((std::is_convertible_v<TraceType, int>));
    EXPECT_FALSE((std::is_convertible_v<TraceRank, int>));
    EXPECT_EQ(static_cast<int32>(TraceType::Normal), 0);
    EXPECT_EQ(static_cast<int32>(TraceType::Transparent), 1);
    EXPECT_EQ(static_cast<int32>(TraceType::Untracked), 2);
}

TEST_F(TraitsTest, EveryTypeHasTheTracingBit) {
    EXPECT_EQ(GetFlagsForTraceType(TraceType::Normal), 0x0020000000000000U);
    EXPECT_EQ(GetFlagsForTraceType(TraceType::Transparent), 0x0028000000000000U);
    EXPECT_EQ(GetFlagsForTraceType(TraceType::Untracked), 0x0060000000000000U);
}

TEST_F(TraitsTest, AnUnknownTypeHasTheFlagsOfANormalOne) {
    EXPECT_EQ(GetFlagsForTraceType(TraceType{7}), 0x0020000000000000U);
    EXPECT_EQ(GetFlagsForTraceType(TraceType{3}), 0x0020000000000000U);
    EXPECT_EQ(GetFlagsForTraceType(TraceType{-1}), 0x0020000000000000U);
    EXPECT_EQ(GetFlagsForTraceType(TraceType{std::numeric_limits<int32>::min()}),
              0x0020000000000000U);
}

TEST_F(TraitsTest, TheMetricsScopeCarriesTheCallersFlagsAndThoseOfTheType) {
    const auto listener = Listen();

    { const ActivityScope scope("work", Traits(TraceType::Transparent, TraceRank::Default, 0x1)); }

    EXPECT_EQ(listener->First(MetricsEventType::OpenScope).flags, 0x0028000000000001U);
    EXPECT_EQ(listener->First(MetricsEventType::CloseScope).flags, 0x0028000000000001U);
}

TEST_F(TraitsTest, ACallersFlagsAreNeverCleared) {
    const auto listener = Listen();

    { const ActivityScope scope("work", Traits(std::numeric_limits<uint64>::max())); }

    EXPECT_EQ(listener->First(MetricsEventType::OpenScope).flags,
              std::numeric_limits<uint64>::max());
}

TEST_F(TraitsTest, AScopeKeepsACopyOfItsTraits) {
    Traits traits(TraceType::Untracked, TraceRank{-3}, 0x40);

    const ActivityScope scope("work", traits);
    traits = Traits();

    ExpectTraits(scope.GetTraits(), TraceType::Untracked, TraceRank{-3}, 0x40);
    EXPECT_TRUE((std::is_same_v<decltype(scope.GetTraits()), const Traits&>));
}

TEST_F(TraitsTest, AScopeThatIsOffHasItsTraitsToo) {
    const ActivityScope scope("work", Traits(TraceType::Transparent, highRank, 0x40));

    ExpectTraits(scope.GetTraits(), TraceType::Transparent, highRank, 0x40);
}

TEST_F(TraitsTest, AScopeAnswersAsTheSettingsDo) {
    const ActivityScope scope("work");
    TarnSettings::GetInstance().SetOffs({"noise"});
    TarnSettings::GetInstance().SetRankOn(TraceRank{2});

    EXPECT_TRUE(scope.IsOff("noise"));
    EXPECT_FALSE(scope.IsOff("work"));
    EXPECT_FALSE(scope.IsOff(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(scope.IsOff(TraceRank{2}));
    EXPECT_TRUE(scope.IsOff(TraceRank{3}));
    EXPECT_TRUE(scope.IsEitherOff(TraceRank{2}, "noise"));
    EXPECT_TRUE(scope.IsEitherOff(TraceRank{3}, "work"));
    EXPECT_FALSE(scope.IsEitherOff(TraceRank{2}, "work"));
    EXPECT_TRUE(scope.IsEitherOff(TraceRank{3}, nullptr));
}

TEST_F(TraitsTest, TracingIsOnOnlyWhenEnabledAndSomebodyListens) {
    EXPECT_FALSE(ActivityScope::IsTarnEnabled());

    OptTarn::SetIsTarnEnabled(true);
    EXPECT_FALSE(ActivityScope::IsTarnEnabled());

    const auto listener = Listen();
    EXPECT_TRUE(ActivityScope::IsTarnEnabled());

    StopListening(listener);
    EXPECT_FALSE(ActivityScope::IsTarnEnabled());
}

TEST_F(TraitsTest, TracingIsOffWhenDisabledWhoeverListens) {
    const auto listener = Listen();
    const auto another = Listen();

    EXPECT_FALSE(ActivityScope::IsTarnEnabled());
}

TEST_F(TraitsTest, TheFirstWordOfTheBusCountsItsListeners) {
    uint64 firstWord = 0;
    const auto listener = Listen();

    std::memcpy(&firstWord, &Metrics::MetricsManager::GetInstance(), sizeof(firstWord));

    EXPECT_EQ(firstWord, 1U);
}

}  // namespace
}  // namespace tarn::test
