#include "ExportFixture.h"
#include "WireFields.h"

#include <map>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PerfettoExportTest : public ExportFixture {};

TEST_F(PerfettoExportTest, PerfettoNestsTheSlicesOfEachTrackAndNamesItsThread) {
    const std::string trace = Export(ExportFormat::Perfetto);

    std::map<std::uint64_t, std::string> tracks;
    std::map<std::uint64_t, std::vector<std::string>> open;
    std::map<std::string, std::vector<std::string>> slices;  // of each thread, as its stacks
    std::vector<std::uint64_t> begins;
    std::uint64_t latest = 0;
    for (const WireReader::Field& packet : WireReader(trace).Fields()) {
        ASSERT_EQ(packet.number, 1U);
        if (const std::string track = FieldOf(packet.text, 60).text; !track.empty()) {
            tracks[FieldOf(track, 1).value] = FieldOf(FieldOf(track, 4).text, 5).text;
        }
        const std::string event = FieldOf(packet.text, 11).text;
        if (event.empty()) {
            continue;
        }
        const std::uint64_t time = FieldOf(packet.text, 8).value;
        EXPECT_GE(time, latest);
        latest = time;
        const std::uint64_t track = FieldOf(event, 11).value;
        if (FieldOf(event, 9).value == 1) {
            open[track].push_back(FieldOf(event, 23).text);
            begins.push_back(time);
            std::string stack;
            for (const std::string& name : open[track]) {
                stack += (stack.empty() ? "" : ";") + name;
            }
            slices[tracks.at(track)].push_back(stack);
        } else {
            ASSERT_FALSE(open[track].empty());
            open[track].pop_back();
        }
    }
    EXPECT_EQ(begins.front(), 1'772'359'200'000'000'000U) << "2026-03-01T10:00:00Z";
    EXPECT_THAT(begins, SizeIs(8));
    EXPECT_THAT(slices["thread 9"], ElementsAre("stock", "stock;lookup"));
    for (const auto& [track, names] : open) {
        EXPECT_THAT(names, IsEmpty()) << "of track " << track;
    }
}

TEST_F(PerfettoExportTest, PerfettoHasTheArgumentsAndAFlowForWorkThatWasHandedOver) {
    const std::string trace = Export(ExportFormat::Perfetto);

    std::map<std::string, std::map<std::string, std::string>> arguments;
    std::map<std::uint64_t, std::string> sources;
    std::map<std::string, std::string> flows;
    for (const WireReader::Field& packet : WireReader(trace).Fields()) {
        const std::string event = FieldOf(packet.text, 11).text;
        if (FieldOf(event, 9).value != 1) {
            continue;
        }
        const std::string name = FieldOf(event, 23).text;
        for (const WireReader::Field& field : WireReader(event).Fields()) {
            if (field.number == 4) {
                const WireReader::Field text = FieldOf(field.text, 6);
                arguments[name][FieldOf(field.text, 10).text] =
                    text.number == 6 ? text.text : std::to_string(FieldOf(field.text, 4).value);
            } else if (field.number == 36) {
                sources[field.value] = name;
            } else if (field.number == 42) {
                flows[name] = sources.at(field.value);
            }
        }
    }
    EXPECT_EQ(arguments["lookup"]["result"], "exception");
    EXPECT_EQ(arguments["lookup"]["allocated-exclusive-bytes"], "70");
    EXPECT_EQ(arguments["sweep"]["result"], "never ended");
    EXPECT_EQ(flows["stock"], "ask");
    EXPECT_EQ(flows.count("lookup"), 0U) << "on the thread of its sponsor";
}

}  // namespace
}  // namespace tarnview
