#include "MonitorTest.h"

#include "tarn/OptTarn.h"

#include <cstddef>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::EventBuilder;
using tarn::test::Field;
using tarn::test::HasActivityField;
using tarn::test::LogValue;
using tarn::test::Table;

class ResourceGroupTest : public tarn::test::MonitorTest {
protected:
    /// The field "res" of a scope's end, without the figures: the names of each group.
    std::string GroupsOfAnEnd() {
        Open(7, "query");
        Close(7);
        const auto resources = Field(LastEvent(), Table::Activity, "res");
        return resources ? WithoutFigures(resources->Text()) : "none";
    }

private:
    static std::string WithoutFigures(const std::string& text) {
        std::string names;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find_first_not_of("-.0123456789", at + 2);
            if (text.compare(at, 2, ": ") == 0 && end != at + 2) {
                at = end;
            } else {
                names += text[at++];
            }
        }
        return names;
    }
};

TEST_F(ResourceGroupTest, OnlyHostsOfThePlatformGetThem) {
    OptTarn::SetIsUnitTest(true);
    EXPECT_EQ(GroupsOfAnEnd(), "none");

    OptTarn::SetIsTarnPlatforms(true);
    EXPECT_NE(GroupsOfAnEnd(), "none");
}

TEST_F(ResourceGroupTest, WithoutMemoryTrackingThereAreAllocationsAndProcessorTimes) {
    ReportResources(corvala::memory::MemoryTrackingOff);

    EXPECT_EQ(GroupsOfAnEnd(),
              R"({"alloc": {"ae", "ai", "ane", "ani"}, "kcpu": {"ke", "ki"}, "ntid", )"
              R"("ucpu": {"ue", "ui"}})");
}

TEST_F(ResourceGroupTest, TrackingAllocationsAddsNothingToThat) {
    ReportResources(corvala::memory::MemoryTrackingAllocations);

    EXPECT_EQ(GroupsOfAnEnd(),
              R"({"alloc": {"ae", "ai", "ane", "ani"}, "kcpu": {"ke", "ki"}, "ntid", )"
              R"("ucpu": {"ue", "ui"}})");
}

TEST_F(ResourceGroupTest, TrackingAllMemoryAddsThePeakAndTheReleases) {
    ReportResources(corvala::memory::MemoryTrackingAll);

    EXPECT_EQ(GroupsOfAnEnd(),
              R"({"alloc": {"ae", "ai", "ane", "ani", "apeak"}, )"
              R"("free": {"de", "di", "dne", "dni"}, "kcpu": {"ke", "ki"}, "ntid", )"
              R"("ucpu": {"ue", "ui"}})");
}

TEST_F(ResourceGroupTest, AnUnknownMemoryModeIsLikeNone) {
    ReportResources(static_cast<corvala::memory::MemoryTrackingMode>(3));

    EXPECT_EQ(GroupsOfAnEnd(),
              R"({"alloc": {"ae", "ai", "ane", "ani"}, "kcpu": {"ke", "ki"}, "ntid", )"
              R"("ucpu": {"ue", "ui"}})");
}

TEST_F(ResourceGroupTest, BytesAreDoublesAndCountsAndTimesAreIntegers) {
    ReportResources(corvala::memory::MemoryTrackingAll);
    Open(7, "query");
    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ai", 10}, {"ani", 1}, {"apeak", 7}, {"di", 4}, {"dni", 2}}));
    Send(EventBuilder::ScopePairs(7, "cpuAttrs", {{"ki", 5}, {"ui", 6}}));

    Close(7);

    EXPECT_THAT(
        LastEvent(),
        HasActivityField(
            "res",
            LogValue::Object(
                {{"alloc",
                  LogValue::Object(
                      {{"ae", 10.0}, {"ane", 1}, {"ai", 10.0}, {"ani", 1}, {"apeak", 7.0}})},
                 {"free", LogValue::Object({{"de", 4.0}, {"dne", 2}, {"di", 4.0}, {"dni", 2}})},
                 {"kcpu", LogValue::Object({{"ki", 5}, {"ke", 5}})},
                 {"ucpu", LogValue::Object({{"ui", 6}, {"ue", 6}})},
                 {"ntid", 1}})));
}

}  // namespace
