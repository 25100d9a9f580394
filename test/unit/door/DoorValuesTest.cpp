#include "DoorTest.h"

#include "tarn/Trace.h"
#include "tarn/Values.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tarn::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::system_clock;

class DoorValuesTest : public DoorTest {
protected:
    /// What becomes of a value in the log.
    template <class T>
    LogValue Logged(const T& value) {
        { const Scope scope("logged", {{"value", value}}); }
        return Field(Events().at(Events().size() - 2), Table::Body, "value").value_or("missing");
    }
};

TEST_F(DoorValuesTest, DurationsAreSeconds) {
    EXPECT_EQ(Logged(milliseconds(1500)), 1.5);
    EXPECT_EQ(Logged(std::chrono::hours(1)), 3600.0);
    EXPECT_EQ(Logged(microseconds(-250)), -0.00025);
}

TEST_F(DoorValuesTest, TimesAreWrittenAsTheLogWritesThem) {
    const system_clock::time_point epoch;

    EXPECT_EQ(Logged(epoch), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(Logged(epoch + std::chrono::seconds(1'000'000'000) + microseconds(7)),
              "2001-09-09T01:46:40.000007Z");
    EXPECT_EQ(Logged(epoch - microseconds(1)), "1969-12-31T23:59:59.999999Z");
}

TEST_F(DoorValuesTest, AnOptionalIsItsValueOrADash) {
    EXPECT_EQ(Logged(std::optional<int>(3)), "3");
    EXPECT_EQ(Logged(std::optional<std::string>("text")), "text");
    EXPECT_EQ(Logged(std::optional<int>()), "-");
    EXPECT_EQ(Logged(std::optional<milliseconds>(250)), "0.25");
}

TEST_F(DoorValuesTest, RangesAreTexts) {
    EXPECT_EQ(Logged(std::vector<int>{1, -2, 3}), "[1, -2, 3]");
    EXPECT_EQ(Logged(std::vector<int>()), "[]");
    EXPECT_EQ(Logged(std::set<std::string>{"b", "a"}), "[a, b]");
    EXPECT_EQ(Logged(std::vector<std::string_view>{"view"}), "[view]");
    EXPECT_EQ(Logged(std::vector<bool>{true, false}), "[true, false]");
    EXPECT_EQ(Logged(std::vector<std::uint64_t>{~std::uint64_t{0}}), "[18446744073709551615]");
    EXPECT_EQ(Logged(std::vector<double>{0.5, 2}), "[0.5, 2]");
    EXPECT_EQ(Logged(std::vector<char>{'a', 'b'}), "[a, b]");
    EXPECT_EQ(Logged(std::vector<std::vector<int>>{{1}, {}}), "[[1], []]");
    const std::string many = Logged(std::vector<int>(1000, 7)).Text();
    EXPECT_EQ(many.size(), std::string("\"[7").size() + 99 * 3 + std::string(", ...]\"").size());
}

TEST_F(DoorValuesTest, PathsErrorsAndExceptionsAreTexts) {
    EXPECT_EQ(Logged(std::filesystem::path("/etc") / "hosts"), "/etc/hosts");
    EXPECT_EQ(Logged(std::error_code()), "ok");
    EXPECT_EQ(Logged(std::make_error_code(std::errc::no_such_file_or_directory)),
              "generic:2 No such file or directory");
    EXPECT_EQ(Logged(std::exception_ptr()), "-");
    EXPECT_EQ(Logged(std::make_exception_ptr(std::runtime_error("bad"))), "bad");
    EXPECT_EQ(Logged(std::make_exception_ptr(5)), "(unknown exception)");
}

}  // namespace
}  // namespace tarn::test
