#include "LogFixture.h"
#include "commands/ReportCommand.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class ReportTest : public LogFixture {
protected:
    std::string Page(std::vector<std::string> files = SampleLogs()) {
        EXPECT_EQ(RunReport({.input = {std::move(files)}, .filter = {}}, Streams()), exitSuccess);
        return Output();
    }

    static std::string DataOf(const std::string& page) {
        const std::string mark = "id=\"data\">";
        const std::size_t begin = page.find(mark) + mark.size();
        return page.substr(begin, page.find("</script>", begin) - begin);
    }
};

TEST_F(ReportTest, ThePageHoldsEveryActivityOnce) {
    const json data = json::parse(DataOf(Page()));

    ASSERT_THAT(data["activities"], SizeIs(8));
    EXPECT_THAT(data["lanes"], SizeIs(3));
    EXPECT_EQ(data["base"], "2026-03-01T10:00:00.000000Z");
    bool isFound = false;
    for (const json& row : data["activities"]) {
        if (data["texts"][row[1].get<std::size_t>()] != "lookup") {
            continue;
        }
        isFound = true;
        EXPECT_EQ(data["lanes"][row[3].get<std::size_t>()], "stock 200:9");
        EXPECT_EQ(row[4], 1) << "within 'stock'";
        EXPECT_EQ(row[5], 55'000);
        EXPECT_EQ(row[6], 20'000);
        EXPECT_EQ(row[7], 20'000);
        EXPECT_EQ(row[8], 500);
        EXPECT_EQ(row[9], 70);
        EXPECT_EQ(data["texts"][row[10].get<std::size_t>()], "exception");
        EXPECT_EQ(row[13], 1) << "failed";
        EXPECT_EQ(row[14], 500);
        EXPECT_EQ(row[15], 70);
    }
    EXPECT_TRUE(isFound);
}

TEST_F(ReportTest, ThePageLoadsNothing) {
    const std::string page = Page();

    EXPECT_THAT(page, Not(HasSubstr("src=")));
    EXPECT_THAT(page, Not(HasSubstr("http:")));
    EXPECT_THAT(page, Not(HasSubstr("https:")));
    EXPECT_THAT(page, Not(HasSubstr("@import")));
    EXPECT_THAT(page, Not(HasSubstr("@DATA@")));
    EXPECT_THAT(page, Not(HasSubstr("@SCRIPT@")));
}

TEST_F(ReportTest, WhatTheLogSaysIsNoMarkup) {
    const std::string page =
        Page({Write("a.log", {{.name = "</script><script>alert(1)</script><!--", .id = "A"}})});

    EXPECT_THAT(page, Not(HasSubstr("alert(1)</script>")));
    EXPECT_EQ(json::parse(DataOf(page))["texts"][0], "</script><script>alert(1)</script><!--");
}

}  // namespace
}  // namespace tarnview
