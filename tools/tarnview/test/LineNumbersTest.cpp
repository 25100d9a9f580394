#include "read/LineNumbers.h"

#include <sstream>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

class LineNumbersTest : public testing::Test {
protected:
    void Take(std::int64_t process, std::initializer_list<std::int64_t> numbers) {
        for (const std::int64_t number : numbers) {
            LogLine line;
            line.process.number = process;
            line.number = number;
            m_numbers.Take(line, {"a.log", 1});
        }
    }

    std::string Gaps() const {
        std::ostringstream out;
        Problems problems(out);
        m_numbers.ReportGaps(problems);
        return out.str() + std::to_string(problems.Count(ProblemKind::MissingLines));
    }

    LineNumbers m_numbers;
};

TEST_F(LineNumbersTest, NumbersInAnyOrderHaveNoGaps) {
    Take(1, {5, 1, 3, 2, 4, 4, 8, 7, 6});

    EXPECT_EQ(Gaps(), "0");
}

TEST_F(LineNumbersTest, EachGapIsNamedAlsoTheOneAtTheBeginning) {
    Take(1, {3, 4, 6, 10});

    EXPECT_EQ(Gaps(),
              "a.log: gap in the numbers of lines: process 1, 1 to 2\n"
              "a.log: gap in the numbers of lines: process 1, 5\n"
              "a.log: gap in the numbers of lines: process 1, 7 to 9\n"
              "6");
}

TEST_F(LineNumbersTest, ProcessesHaveNumbersOfTheirOwn) {
    Take(1, {1, 2});
    Take(2, {1, 3});
    Take(1, {3});

    EXPECT_EQ(Gaps(), "a.log: gap in the numbers of lines: process 2, 2\n1");
}

TEST_F(LineNumbersTest, AProcessIdThatIsUsedAgainBeginsAnew) {
    Take(1, {1, 2, 4});
    Take(1, {1, 2, 3, 4});

    EXPECT_EQ(Gaps(), "a.log: gap in the numbers of lines: process 1, 3\n1");
}

TEST_F(LineNumbersTest, LinesWithoutANumberSayNothing) {
    Take(1, {0, 0});

    EXPECT_FALSE(m_numbers.HasAny());
    EXPECT_EQ(Gaps(), "0");
}

}  // namespace
}  // namespace tarnview
