#include "output/Progress.h"

#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::uint64_t megabyte = 1'000'000;

class ProgressTest : public testing::Test {
protected:
    // What has been written when the bytes have been read so long after the beginning.
    std::string After(milliseconds time, std::uint64_t bytes, Progress& progress) {
        progress.Update(bytes, m_start + time);
        return m_out.str();
    }

    std::ostringstream m_out;
    Progress::Clock::time_point m_start = Progress::Clock::now();
};

TEST_F(ProgressTest, NothingIsShownWithinASecond) {
    Progress progress(m_out, true, 400 * megabyte);

    EXPECT_THAT(After(milliseconds(900), 100 * megabyte, progress), IsEmpty());
}

TEST_F(ProgressTest, TheBarSaysTheShareTheRateAndTheRest) {
    Progress progress(m_out, true, 400 * megabyte);

    const std::string bar = After(seconds(2), 100 * megabyte, progress);

    EXPECT_THAT(bar, StartsWith("\r[#######.......................]  25 %  50 MB/s  6 s left "));
}

TEST_F(ProgressTest, ASecondPassCountsOnFromTheFirst) {
    Progress progress(m_out, true, 400 * megabyte);
    progress.ExpectAnotherPass();

    const std::string bar = After(seconds(10), 500 * megabyte, progress);

    EXPECT_THAT(bar, HasSubstr("]  62 %  50 MB/s  6 s left "));
}

TEST_F(ProgressTest, WithoutATotalItSaysWhatHasBeenRead) {
    Progress progress(m_out, true, 0);

    EXPECT_THAT(After(seconds(2), 100 * megabyte, progress), StartsWith("\r100 MB read  50 MB/s "));
}

TEST_F(ProgressTest, ItIsRedrawnTenTimesASecondAtTheMost) {
    Progress progress(m_out, true, 400 * megabyte);
    const std::string first = After(seconds(2), 100 * megabyte, progress);

    EXPECT_EQ(After(milliseconds(2050), 110 * megabyte, progress), first);
    EXPECT_NE(After(milliseconds(2200), 110 * megabyte, progress), first);
}

TEST_F(ProgressTest, ItIsTakenAway) {
    {
        Progress progress(m_out, true, 400 * megabyte);
        After(seconds(2), 100 * megabyte, progress);
        m_out.str("");
    }

    EXPECT_EQ(m_out.str(), "\r\x1B[K");
}

TEST_F(ProgressTest, OneThatIsNotEnabledWritesNothing) {
    Progress progress(m_out, false, 400 * megabyte);

    EXPECT_THAT(After(seconds(2), 100 * megabyte, progress), IsEmpty());
}

}  // namespace
}  // namespace tarnview
