#include "ExportFixture.h"
#include "export/Exports.h"

#include <algorithm>
#include <map>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SpeedscopeExportTest : public ExportFixture {};

// Plays the events back: each end closes what was opened last, at no earlier time.
TEST_F(SpeedscopeExportTest, SpeedscopeProfilesAreBalancedAndHaveTheTotals) {
    const json file = json::parse(Export(ExportFormat::Speedscope));
    const json& frames = file["shared"]["frames"];
    std::map<std::string, long long> totals;
    std::size_t evented = 0;

    for (const json& profile : file["profiles"]) {
        if (profile["type"] != "evented") {
            continue;
        }
        ++evented;
        EXPECT_EQ(profile["unit"], "nanoseconds");
        std::vector<std::pair<std::size_t, long long>> open;
        long long last = profile["startValue"];
        for (const json& event : profile["events"]) {
            const long long at = event["at"];
            ASSERT_GE(at, last);
            last = at;
            if (event["type"] == "O") {
                open.emplace_back(event["frame"], at);
            } else {
                ASSERT_FALSE(open.empty());
                ASSERT_EQ(open.back().first, event["frame"].get<std::size_t>());
                totals[frames[open.back().first]["name"]] += at - open.back().second;
                open.pop_back();
            }
        }
        EXPECT_THAT(open, IsEmpty());
        EXPECT_LE(last, profile["endValue"].get<long long>());
    }

    EXPECT_EQ(evented, 3U);
    EXPECT_THAT(totals,
                ElementsAre(std::pair("ask", 50'000'000),
                            std::pair("audit", 40'000'000),
                            std::pair("lookup", 20'000'000),
                            std::pair("order", 100'000'000),
                            std::pair("price", 20'000'000),
                            std::pair("refund", 5'000'000),
                            std::pair("stock", 30'000'000),
                            std::pair("sweep", 1'000)))
        << "what never ended is drawn a microsecond beyond the log";
}

TEST_F(SpeedscopeExportTest, SpeedscopeOpensOnTheBusiestThreadAndShowsNoTimeBesideIt) {
    const json file = json::parse(Export(
        ExportFormat::Speedscope,
        {Write("a.log",
               {{.name = "short", .id = "A"},
                {.phase = "end", .name = "short", .id = "A", .milliseconds = 1, .elapsed = 1},
                {.name = "long", .id = "B", .milliseconds = 500, .thread = 2},
                {.phase = "end",
                 .name = "long",
                 .id = "B",
                 .milliseconds = 900,
                 .thread = 2,
                 .elapsed = 400}})}));

    const json& active = file["profiles"][file["activeProfileIndex"].get<std::size_t>()];
    EXPECT_EQ(active["name"], "process 1 thread 2");
    EXPECT_EQ(active["startValue"], 500'000'000);
    EXPECT_EQ(active["endValue"], 900'000'000);
    EXPECT_EQ(file["profiles"][0]["endValue"], 1'000'000);
}

TEST_F(SpeedscopeExportTest, SpeedscopeHasTheBytesThatEachStackAllocated) {
    const json file = json::parse(Export(ExportFormat::Speedscope));
    const json& profile = Find(file["profiles"], "name", "shop process 100 memory allocated");

    long long total = 0;
    for (const json& weight : profile["weights"]) {
        total += weight.get<long long>();
    }

    EXPECT_EQ(profile["type"], "sampled");
    EXPECT_EQ(profile["unit"], "bytes");
    EXPECT_EQ(profile["samples"].size(), profile["weights"].size());
    EXPECT_EQ(total, 1950);
    EXPECT_EQ(profile["endValue"], total);
}

TEST_F(SpeedscopeExportTest, SpeedscopePutsWhatOverlapsIntoAProfileOfItsOwn) {
    const json file = json::parse(Export(ExportFormat::Speedscope, {Crossing()}));

    EXPECT_THAT(file["profiles"], SizeIs(2));
    EXPECT_EQ(file["profiles"][1]["name"], "process 1 thread 1 overlapping 1");
}

TEST_F(SpeedscopeExportTest, SpeedscopeCutsAVeryDeepStackToo) {
    const json file = json::parse(Export(ExportFormat::Speedscope, {Chain()}));

    const json& profile = Find(file["profiles"], "name", "process 1 memory allocated");
    std::size_t longest = 0;
    for (const json& stack : profile["samples"]) {
        longest = std::max(longest, stack.size());
    }
    EXPECT_EQ(longest, deepestStack);
    EXPECT_EQ(profile["endValue"], 10 * levels);
}

}  // namespace
}  // namespace tarnview
