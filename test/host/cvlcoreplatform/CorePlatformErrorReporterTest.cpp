#include "ErrorReporter.h"

#include <chrono>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using cvlcoreplatform::ErrorReporter;

class CorePlatformErrorReporterTest : public testing::Test {
protected:
    // What a report at this time writes.
    std::string ReportAt(std::chrono::steady_clock::duration time, uint64 total) {
        testing::internal::CaptureStderr();
        m_reporter.Report(
            ErrorReporter::Clock::time_point(time), "cannot write", "disk full", total);
        return testing::internal::GetCapturedStderr();
    }

    ErrorReporter m_reporter;
};

TEST_F(CorePlatformErrorReporterTest, TheFirstErrorIsReportedAtOnce) {
    EXPECT_EQ(ReportAt(0s, 1), "log: cannot write: disk full, 1 so far\n");
}

TEST_F(CorePlatformErrorReporterTest, WithinAMinuteThereIsNoSecondReport) {
    ReportAt(10s, 1);

    EXPECT_EQ(ReportAt(10s, 2), "");
    EXPECT_EQ(ReportAt(69s, 3), "");
}

TEST_F(CorePlatformErrorReporterTest, AfterAMinuteTheNextErrorIsReportedWithTheTotal) {
    ReportAt(10s, 1);
    ReportAt(20s, 2);

    EXPECT_EQ(ReportAt(70s, 900), "log: cannot write: disk full, 900 so far\n");
    EXPECT_EQ(ReportAt(129s, 901), "");
}

TEST_F(CorePlatformErrorReporterTest, TheClockMayBeginBelowZero) {
    EXPECT_NE(ReportAt(-100s, 1), "");
    EXPECT_EQ(ReportAt(-99s, 2), "");
    EXPECT_NE(ReportAt(-40s, 3), "");
}

}  // namespace
