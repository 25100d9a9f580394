#include "tarn/MonitorUUIDGenerator.h"

#include "MonitorTest.h"

#include <memory>
#include <set>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::HasActivityField;
using tarn::test::KnownIds;

TEST(MonitorUUIDGeneratorTest, TwoIdsDiffer) {
    MonitorUUIDGenerator generator;

    EXPECT_NE(generator.CreateUUID(), generator.CreateUUID());
}

TEST(MonitorUUIDGeneratorTest, ManyIdsAllDifferAndAreRandomOnes) {
    MonitorUUIDGenerator generator;
    std::set<TUUID> ids;

    for (int i = 0; i < 10000; ++i) {
        const TUUID id = generator.CreateUUID();
        ids.insert(id);
        ASSERT_EQ(id.Bytes()[6] >> 4, 4) << "the version";
        ASSERT_EQ(id.Bytes()[8] >> 6, 2) << "the variant";
    }

    EXPECT_EQ(ids.size(), 10000U);
}

TEST(MonitorUUIDGeneratorTest, ItIsAnIdSourceOfAMonitor) {
    const std::unique_ptr<IMetricsMonitorUUID> source = std::make_unique<MonitorUUIDGenerator>();

    EXPECT_FALSE(source->CreateUUID().IsNil());
}

TEST(MonitorUUIDGeneratorTest, CopiesAreGeneratorsOfTheirOwn) {
    static_assert(std::is_copy_constructible_v<MonitorUUIDGenerator>);
    static_assert(std::is_copy_assignable_v<MonitorUUIDGenerator>);
    MonitorUUIDGenerator generator;
    MonitorUUIDGenerator copy(generator);
    copy = generator;

    EXPECT_NE(generator.CreateUUID(), copy.CreateUUID());
}

class InstalledGeneratorTest : public tarn::test::MonitorTest {};

TEST_F(InstalledGeneratorTest, ItIsTheOnlySourceOfTheIdsOfScopesThatOpenAfterwards) {
    Open(7, "first");
    Open(8, "second");

    EXPECT_THAT((*events)[0], HasActivityField("id", KnownIds::Text(1)));
    EXPECT_THAT((*events)[1], HasActivityField("id", KnownIds::Text(2)));
    EXPECT_EQ(*idsMade, 2);
}

TEST_F(InstalledGeneratorTest, ScopesThatAreOpenKeepTheirIdsWhenItIsReplaced) {
    Open(7, "first");
    Open(8, "second");

    monitor->EnableTest(new tarn::test::CapturingSink(events), new KnownIds);
    Close(8);
    EXPECT_THAT(LastEvent(), HasActivityField("id", KnownIds::Text(2)));
    Open(9, "third");

    EXPECT_THAT(LastEvent(), HasActivityField("id", KnownIds::Text(1)));
    EXPECT_EQ(*idsMade, 2);
}

}  // namespace
