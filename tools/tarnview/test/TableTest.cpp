#include "output/Table.h"

#include "output/Units.h"

#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::HasSubstr;
using testing::Not;

Table Sample() {
    Table table({{"count", "count"},
                 {"cpu", "cpu_seconds", false, 1},
                 {"first", "first", true, 2},
                 {"message", "message", true},
                 {"", "id"}});
    table.Add({Cell::Count(7),
               Cell::Duration(1'500),
               Cell::Text("2026-03-01T10:00:00.000000Z"),
               Cell::Text("a message that says quite a lot, \"really\""),
               Cell::Text("A")});
    table.Add({Cell::Count(12),
               Cell::Missing(),
               Cell::Text("2026-03-01T10:00:01.000000Z"),
               Cell::Text("short\x1B[2J"),
               Cell::Text("B")});
    return table;
}

std::string Printed(std::size_t width, TableFormat format = TableFormat::Text) {
    std::ostringstream out;
    Sample().Print(out, {.width = width}, format);
    return out.str();
}

TEST(TableTest, AFileHasTheFullWidthAndNoControlCharacters) {
    EXPECT_EQ(Printed(0),
              "count      cpu  first                        message\n"
              "    7  1.50 ms  2026-03-01T10:00:00.000000Z  a message that says quite a lot, "
              "\"really\"\n"
              "   12           2026-03-01T10:00:01.000000Z  short?[2J\n");
}

TEST(TableTest, RowsFitTheTerminalAndTheLeastImportantColumnGoesFirst) {
    EXPECT_THAT(Printed(60), HasSubstr("10:00:00.000000Z  a message that~"));
    EXPECT_THAT(Printed(50), Not(HasSubstr("first")));
    EXPECT_THAT(Printed(50), HasSubstr("cpu"));
    EXPECT_THAT(Printed(20), HasSubstr("count"));
    EXPECT_THAT(Printed(20), Not(HasSubstr("cpu")));
    for (std::size_t width = 20; width < 100; ++width) {
        std::istringstream lines(Printed(width));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(TextWidth(line), width) << line;
        }
    }
}

TEST(TableTest, CsvQuotesWhatNeedsItAndLeavesWhatIsMissingEmpty) {
    EXPECT_EQ(Printed(20, TableFormat::Csv),
              "count,cpu_seconds,first,message,id\n"
              "7,0.001500,2026-03-01T10:00:00.000000Z,\"a message that says quite a lot, "
              "\"\"really\"\"\",A\n"
              "12,,2026-03-01T10:00:01.000000Z,short\x1B[2J,B\n");
}

TEST(TableTest, JsonHasAnObjectForEachRowWithNumbersAsNumbers) {
    EXPECT_EQ(Printed(20, TableFormat::Json),
              R"({"count":7,"cpu_seconds":0.001500,"first":"2026-03-01T10:00:00.000000Z",)"
              R"("message":"a message that says quite a lot, \"really\"","id":"A"})"
              "\n"
              R"({"count":12,"cpu_seconds":null,"first":"2026-03-01T10:00:01.000000Z",)"
              R"("message":"short\u001B[2J","id":"B"})"
              "\n");
}

}  // namespace
}  // namespace tarnview
