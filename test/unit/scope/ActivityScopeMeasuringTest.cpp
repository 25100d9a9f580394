// When and where scopes measure: around what, at what cost, and what is said when it goes wrong.
#include "MisusedScope.h"
#include "Sanitizers.h"
#include "ScopeTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlsys/CorvalaError.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Frame = corvala::memory::ThreadMemoryCounters;

// The memory frames that were current when the thread's processor time was read, while a test asks.
thread_local std::vector<const Frame*>* t_framesAtReadings = nullptr;

}  // namespace

// The program's own definition is found before the system's, by the host's libraries too.
extern "C" __attribute__((visibility("default"))) int getrusage(__rusage_who_t who,
                                                                rusage* usage) noexcept {
    if (t_framesAtReadings != nullptr) {
        t_framesAtReadings->push_back(tarn::test::CurrentMemoryFrame());
    }
    return static_cast<int>(::syscall(SYS_getrusage, who, usage));
}

namespace tarn::test {
namespace {

using corvala::memory::MemoryTrackingMode;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr MemoryTrackingMode allModes[] = {corvala::memory::MemoryTrackingOff,
                                           corvala::memory::MemoryTrackingAllocations,
                                           corvala::memory::MemoryTrackingAll};

int64 ThreadMicroseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1'000'000 + now.tv_nsec / 1000;
}

class ActivityScopeMeasuringTest : public ScopeTest {};

TEST_F(ActivityScopeMeasuringTest, ProcessorTimeIsMeasuredAroundTheMemoryFrame) {
    corvala::cputime::SetCpuTrackingEnabled(true);
    const ActivityScope outer("outer");
    const Frame* const outerFrame = CurrentMemoryFrame();
    std::vector<const Frame*> frames;

    t_framesAtReadings = &frames;
    { const ActivityScope scope("work"); }
    t_framesAtReadings = nullptr;

    EXPECT_THAT(frames, ElementsAre(outerFrame, outerFrame))
        << "the scope's own frame was there already, or still";
}

TEST_F(ActivityScopeMeasuringTest, WithTrackingOffNestedScopesCostTheSameAtEveryDepth) {
    constexpr int depth = 100'000;
    constexpr int64 seconds = hasThreadSanitizer || hasAddressSanitizer ? 20 : 2;
    StopListening(m_events);
    std::vector<std::unique_ptr<ActivityScope>> scopes;
    scopes.reserve(depth);

    // The thread's own time, on which the machine's load has little influence.
    const int64 before = ThreadMicroseconds();
    for (int i = 0; i < depth; ++i) {
        scopes.push_back(std::make_unique<ActivityScope>("nested"));
    }
    while (!scopes.empty()) {
        scopes.pop_back();
    }

    EXPECT_LT(ThreadMicroseconds() - before, seconds * 1'000'000);
}

// ---- The line before the process ends

using ActivityScopeMeasuringDeathTest = ActivityScopeMeasuringTest;

/// The output has a line of this beginning and end, and after it what the runtime says.
testing::Matcher<const std::string&> SaysFirst(const std::string& line, const std::string& error) {
    return testing::ResultOf(
        [line](const std::string& output) {
            const auto at = output.find(line);
            return at == std::string::npos ? "no such line in: " + output : output.substr(at);
        },
        AllOf(StartsWith(line), HasSubstr("docs/front-door.md"), HasSubstr(error)));
}

TEST_F(ActivityScopeMeasuringDeathTest, AScopeThatEndsOnAnotherThreadSaysWhichOneOnWhichThreads) {
    for (const MemoryTrackingMode mode : allModes) {
        corvala::memory::SetMemoryTrackingMode(mode);
        // The forked child has thread ids of its own, which it says.
        const auto isTold = [](const std::string& output) {
            unsigned long long begin = 0;
            unsigned long long end = 0;
            const auto told = output.find("told: ");
            if (told == std::string::npos ||
                std::sscanf(output.c_str() + told, "told: %llu %llu", &begin, &end) != 2 ||
                begin == end) {
                return false;
            }
            return testing::Value(
                output,
                SaysFirst("tarn: scope \"wanderer\" began on thread " + std::to_string(begin) +
                              " and ended on thread " + std::to_string(end) + ".",
                          "MemoryScope can only be used on single thread"));
        };
        EXPECT_DEATH(
            {
                const uint64 here = TSystem::ThreadID();
                auto scope = std::make_unique<ActivityScope>("wanderer");
                OnAnotherThread([&scope, here] {
                    std::fprintf(stderr,
                                 "told: %llu %llu\n",
                                 static_cast<unsigned long long>(here),
                                 static_cast<unsigned long long>(TSystem::ThreadID()));
                    scope.reset();
                });
            },
            testing::Truly(isTold))
            << mode;
    }
}

TEST_F(ActivityScopeMeasuringDeathTest, AScopeThatEndsOutOfOrderSaysWhichOne) {
    for (const MemoryTrackingMode mode : allModes) {
        corvala::memory::SetMemoryTrackingMode(mode);
        EXPECT_DEATH(
            {
                auto outer = std::make_unique<ActivityScope>("outer");
                const ActivityScope inner("inner");
                outer.reset();
            },
            SaysFirst("tarn: scope \"outer\" ended on thread ",
                      "counters == &this->m_threadMemoryCounters"))
            << mode;
    }
}

TEST_F(ActivityScopeMeasuringDeathTest, AScopeThatNobodyHearsOfIsNamedToo) {
    StopListening(m_events);

    EXPECT_DEATH(
        {
            auto scope =
                std::make_unique<ActivityScope>("unheard", CustomContext(Metrics::NameValueList()));
            OnAnotherThread([&scope] { scope.reset(); });
        },
        SaysFirst("tarn: scope \"unheard\" began on thread ", "MemoryScope"));
}

TEST_F(ActivityScopeMeasuringDeathTest, ALongNameIsCutInTheLine) {
    EXPECT_DEATH(
        {
            auto scope = std::make_unique<ActivityScope>(
                "a name that is much longer than what a scope keeps of names");
            OnAnotherThread([&scope] { scope.reset(); });
        },
        SaysFirst(
            "tarn: scope \"a name that is much longer than what a scope kee...\" began on thread ",
            "MemoryScope"));
}

TEST_F(ActivityScopeMeasuringTest, AScopeTakesNoMoreThan320BytesOfTheStack) {
    EXPECT_LE(sizeof(ActivityScope), 320U);
}

std::string ReportOf(std::string_view name, std::size_t room, uint32 code) {
    const LogicException broken("file", 1, "text", CorvalaError(code, TStringCore("error")));
    testing::internal::CaptureStderr();
    ReportMisusedScope(name, room, 7, broken);
    return testing::internal::GetCapturedStderr();
}

TEST_F(ActivityScopeMeasuringTest, TheReportIsOneLineWhateverTheNameAndTheError) {
    const std::string longName(200, 'x');
    for (const uint32 code : {0x4A90166DU, 0xB05D80FEU, 0xDDDE9A38U}) {
        for (const std::string_view name : {std::string_view(),
                                            std::string_view("two\nlines \x1B[1m\x7F \"quoted\""),
                                            std::string_view(longName)}) {
            const std::string report = ReportOf(name, 1000, code);

            EXPECT_THAT(report, AllOf(StartsWith("tarn: scope \""), EndsWith(".\n")));
            EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 1) << report;
            EXPECT_EQ(std::count(report.begin(), report.end(), '\x1B'), 0) << report;
        }
    }
}

TEST_F(ActivityScopeMeasuringTest, TheReportShowsWhereANameWasCutAndCutsNoCharacter) {
    // The last character would have needed one more byte.
    const std::string cut = std::string(6, 'x') + "\xE2\x82";

    EXPECT_THAT(ReportOf(cut, cut.size(), 0xB05D80FE), HasSubstr("\"xxxxxx...\""));
    EXPECT_THAT(ReportOf("gr\xC3\xBC\xC3\x9F", 56, 0xB05D80FE),
                HasSubstr("\"gr\xC3\xBC\xC3\x9F\""));
    EXPECT_THAT(ReportOf("short", 56, 0xB05D80FE), Not(HasSubstr("...")));
}

}  // namespace
}  // namespace tarn::test
