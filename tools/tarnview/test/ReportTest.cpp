#include "LogFixture.h"
#include "commands/ReportCommand.h"
#include "read/Decompression.h"

#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

// What a page holds, taken apart as its script does it.
class PageData {
public:
    explicit PageData(const std::string& page) : m_bytes(Unpacked(Packed(page))) {
        std::uint32_t size = 0;
        std::memcpy(&size, m_bytes.data(), sizeof(size));
        header = json::parse(m_bytes.substr(sizeof(size), size));
        std::size_t place = sizeof(size) + size;
        for (const json& column : header["columns"]) {
            const std::size_t width = column[1] == "f64" ? 8 : column[1] == "i32" ? 4 : 1;
            EXPECT_EQ(place % 8, 0U) << column;
            m_columns[column[0]] = {place, column[2]};
            place = (place + column[2].get<std::size_t>() * width + 7) / 8 * 8;
        }
    }

    std::size_t Size() const { return m_columns.at("begin").second; }

    double Real(const std::string& column, std::size_t row) const {
        return At<double>(column, row);
    }

    std::int32_t Integer(const std::string& column, std::size_t row) const {
        return At<std::int32_t>(column, row);
    }

    int State(std::size_t row) const { return At<char>("state", row); }

    std::string Text(const std::string& column, std::size_t row) const {
        return Cut("texts", "textEnd", static_cast<std::size_t>(Integer(column, row)));
    }

    std::string Id(std::size_t row) const { return Cut("ids", "idEnd", row); }

    // The row of an activity of that name.
    std::size_t Find(const std::string& name) const {
        std::size_t row = 0;
        while (row < Size() && Text("name", row) != name) {
            ++row;
        }
        return row;
    }

    json header;

private:
    template <class Value>
    Value At(const std::string& column, std::size_t row) const {
        Value value{};
        std::memcpy(
            &value, &m_bytes[m_columns.at(column).first + row * sizeof(value)], sizeof(value));
        return value;
    }

    std::string Cut(const std::string& bytes, const std::string& ends, std::size_t number) const {
        const auto begin = static_cast<std::size_t>(number == 0 ? 0 : Integer(ends, number - 1));
        const auto end = static_cast<std::size_t>(Integer(ends, number));
        return m_bytes.substr(m_columns.at(bytes).first + begin, end - begin - 1);
    }

    static std::string Packed(const std::string& page) {
        constexpr std::string_view letters =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        const std::string mark = "id=\"data\">";
        const std::size_t begin = page.find(mark) + mark.size();
        std::string bytes;
        std::uint32_t bits = 0;
        int count = 0;
        for (const char letter : page.substr(begin, page.find("</script>", begin) - begin)) {
            if (letter == '=') {
                break;
            }
            bits = bits << 6U | static_cast<std::uint32_t>(letters.find(letter));
            count += 6;
            if (count >= 8) {
                count -= 8;
                bytes.push_back(static_cast<char>(bits >> static_cast<unsigned>(count)));
            }
        }
        return bytes;
    }

    static std::string Unpacked(const std::string& packed) {
        const int input = memfd_create("packed", 0);
        const int output = memfd_create("unpacked", 0);
        EXPECT_EQ(write(input, packed.data(), packed.size()), static_cast<ssize_t>(packed.size()));
        lseek(input, 0, SEEK_SET);
        EXPECT_EQ(Decompress(input, output), "");
        std::string bytes(static_cast<std::size_t>(lseek(output, 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(output, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        close(input);
        close(output);
        return bytes;
    }

    std::string m_bytes;
    std::map<std::string, std::pair<std::size_t, std::size_t>> m_columns;
};

class ReportTest : public LogFixture {
protected:
    std::string Page(std::vector<std::string> files = SampleLogs()) {
        EXPECT_EQ(RunReport({.input = {std::move(files)}, .filter = {}}, Streams()), exitSuccess);
        return Output();
    }
};

TEST_F(ReportTest, ThePageHoldsEveryActivityOnce) {
    const PageData data(Page());

    ASSERT_EQ(data.Size(), 8U);
    EXPECT_THAT(data.header["lanes"], SizeIs(3));
    EXPECT_EQ(data.header["base"], "2026-03-01T10:00:00.000000Z");
    const std::size_t row = data.Find("lookup");
    ASSERT_LT(row, data.Size());
    EXPECT_EQ(data.header["lanes"][static_cast<std::size_t>(data.Integer("lane", row))],
              "stock 200:9");
    EXPECT_EQ(data.Integer("level", row), 1) << "within 'stock'";
    EXPECT_EQ(data.Real("begin", row), 55'000);
    EXPECT_EQ(data.Real("length", row), 20'000);
    EXPECT_EQ(data.Real("exclusive", row), 20'000);
    EXPECT_EQ(data.Real("cpu", row), 500);
    EXPECT_EQ(data.Real("memory", row), 70);
    EXPECT_EQ(data.Text("result", row), "exception");
    EXPECT_EQ(data.State(row), 1) << "failed";
    EXPECT_EQ(data.Real("cpuAll", row), 500);
    EXPECT_EQ(data.Real("memoryAll", row), 70);
    EXPECT_EQ(data.Text("name", static_cast<std::size_t>(data.Integer("parent", row))), "stock");
}

TEST_F(ReportTest, ActivitiesStandInTheOrderOfTheirBegins) {
    const PageData data(Page({Write("a.log",
                                    {{.name = "late", .id = "L", .milliseconds = 9},
                                     {.name = "early", .id = "E", .milliseconds = 2}})}));

    ASSERT_EQ(data.Size(), 2U);
    EXPECT_EQ(data.Id(0), "E");
    EXPECT_EQ(data.Id(1), "L");
    EXPECT_EQ(data.Real("begin", 0), 0);
    EXPECT_EQ(data.Real("begin", 1), 7'000);
}

// The page counts as its language does: a character beyond the first 65,536 is two.
TEST_F(ReportTest, TextsEndWhereTheBrowserFindsTheirEnds) {
    const PageData data(Page({Write("a.log", {{.name = "a\xC3\xA9\xF0\x9F\x98\x80", .id = "A"}})}));

    EXPECT_EQ(data.Integer("textEnd", static_cast<std::size_t>(data.Integer("name", 0))), 5);
}

TEST_F(ReportTest, APageOfAnEmptyLogIsAPage) {
    const PageData data(Page({Write("a.log", "")}));

    EXPECT_EQ(data.Size(), 0U);
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
    EXPECT_EQ(PageData(page).Text("name", 0), "</script><script>alert(1)</script><!--");
}

}  // namespace
}  // namespace tarnview
