#include "ChildProcess.h"
#include "CorePlatformLogFileTestSupport.h"
#include "Threads.h"

#include "cvlcoreplatform/host/JsonLines.h"

#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/ostream_sink.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using LogTest::ContentOf;
using LogTest::LimitFileSize;
using LogTest::LinesIn;
using LogTest::Missing;
using LogTest::SetContentOf;
using LogTest::SilenceStandardError;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class CorePlatformLogFileTest : public LogTest::LogFileTest {};

TEST_F(CorePlatformLogFileTest, EveryLineIsInTheFileAsSoonAsItIsLogged) {
    LogTo(m_path);

    LogMessage("one");
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one"));
    LogMessage("two");
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "two"));
}

TEST_F(CorePlatformLogFileTest, LinesAndBytesAreCounted) {
    LogTo(m_path);

    LogMessage("one");
    Logger::Get().Log(Info, Event(u"e", nullptr));

    EXPECT_EQ(Increase(&LogStatistics::lines), 2u);
    EXPECT_EQ(Increase(&LogStatistics::bytes), ContentOf(m_path).size());
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u);
}

TEST_F(CorePlatformLogFileTest, AnExistingFileIsAppendedTo) {
    SetContentOf(m_path, "{\"message\":\"before\"}\n");

    LogTo(m_path);
    LogMessage("after");

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("before", "after"));
}

TEST_F(CorePlatformLogFileTest, AHalfLineOfAnEarlierRunDoesNotSpoilTheFirstLineOfThisOne) {
    SetContentOf(m_path, "{\"message\":\"cut of");

    LogTo(m_path);
    LogMessage("one");
    LogMessage("two");

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("<broken>{\"message\":\"cut of", "one", "two"));
}

TEST_F(CorePlatformLogFileTest, ALogIsNotForEverybodysEyes) {
    const mode_t before = umask(0);
    LogTo(m_path);
    umask(before);

    struct stat status {};

    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
}

TEST_F(CorePlatformLogFileTest, AProcessThatClosedItsStandardStreamsDoesNotMixThemWithTheLog) {
    const bool done = tarn::test::SucceedsInChild([&] {
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            close(standard);
        }
        LogTo(m_path);
        LogMessage("one");
        const char stray[] = "stray";
        const bool refused = write(STDERR_FILENO, stray, sizeof stray) < 0;
        LogMessage("two");
        return refused;
    });

    EXPECT_TRUE(done);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "two"));
}

TEST_F(CorePlatformLogFileTest, AFileThatCannotBeOpenedIsRefusedWithPathAndReason) {
    SetContentOf(m_folder.PathOf("file"), "precious");

    struct Case {
        std::string path;
        int reason;
    };

    for (const Case& refused : {Case{m_folder.PathOf("missing/a.log"), ENOENT},
                                Case{m_folder.Path().string(), EISDIR},
                                Case{m_folder.PathOf("file/a.log"), ENOTDIR},
                                Case{"", ENOENT}}) {
        try {
            MakeJsonFileBackEnd(refused.path);
            ADD_FAILURE() << refused.path << " was opened";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), refused.reason) << refused.path;
            EXPECT_THAT(error.what(),
                        AllOf(HasSubstr("cannot open log file " + refused.path),
                              HasSubstr(std::generic_category().message(refused.reason))));
        }
    }
    EXPECT_EQ(ContentOf(m_folder.PathOf("file")), "precious");
}

TEST_F(CorePlatformLogFileTest, AFolderWithoutWritePermissionIsRefused) {
    if (geteuid() == 0) {
        // The administrator may write anywhere but here.
        EXPECT_THROW(MakeJsonFileBackEnd("/proc/a.log"), std::system_error);
        return;
    }
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0500), 0);

    EXPECT_THROW(MakeJsonFileBackEnd(m_path), std::system_error);

    chmod(m_folder.Path().c_str(), 0700);
}

TEST_F(CorePlatformLogFileTest, ALimitWithoutFullFilesIsRefused) {
    EXPECT_THROW(MakeJsonFileBackEnd(m_path, LogFileLimits{1000, 0}), std::invalid_argument);
    EXPECT_THAT(FilesInFolder(), IsEmpty());
}

TEST_F(CorePlatformLogFileTest, ALineThatGoesBeyondTheLimitBeginsANewFile) {
    const std::size_t line = LineLength(3);
    LogTo(m_path, LogFileLimits{2 * line, 3});

    for (const char* text : {"001", "002", "003", "004", "005"}) {
        LogMessage(text);
    }

    EXPECT_THAT(MessagesIn(PathOfFullFile(2)), ElementsAre("001", "002"));
    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("003", "004"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("005"));
    EXPECT_THAT(FilesInFolder(), ElementsAre("a.1.log", "a.2.log", "a.log"));
}

TEST_F(CorePlatformLogFileTest, OnlyTheOldestFullFileIsReplaced) {
    const std::size_t line = LineLength(3);
    LogTo(m_path, LogFileLimits{line, 2});

    for (const char* text : {"001", "002", "003", "004", "005"}) {
        LogMessage(text);
    }

    EXPECT_THAT(FilesInFolder(), ElementsAre("a.1.log", "a.2.log", "a.log"));
    EXPECT_THAT(MessagesIn(PathOfFullFile(2)), ElementsAre("003"));
    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("004"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("005"));
    EXPECT_EQ(Increase(&LogStatistics::rotationErrors), 0u);
}

TEST_F(CorePlatformLogFileTest, AGapAmongTheFullFilesIsFilledBeforeAnythingIsReplaced) {
    const std::size_t line = LineLength(3);
    SetContentOf(PathOfFullFile(2), "oldest\n");
    LogTo(m_path, LogFileLimits{line, 2});

    LogMessage("001");
    LogMessage("002");

    EXPECT_EQ(ContentOf(PathOfFullFile(2)), "oldest\n");
    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("001"));
}

TEST_F(CorePlatformLogFileTest, WhatAnExistingFileHoldsCountsTowardsTheLimit) {
    const std::size_t line = LineLength(3);
    {
        LogTo(m_path, LogFileLimits{2 * line, 2});
        LogMessage("001");
        LogMessage("002");
    }

    LogTo(m_path, LogFileLimits{2 * line, 2});
    LogMessage("003");

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("001", "002"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("003"));
}

TEST_F(CorePlatformLogFileTest, ALineLongerThanTheLimitIsWrittenAllTheSame) {
    LogTo(m_path, LogFileLimits{10, 2});
    const std::string text(100, 'x');

    LogMessage(text);
    LogMessage("next");

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre(text));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("next"));
}

TEST_F(CorePlatformLogFileTest, WithoutALimitThereIsOneFile) {
    LogTo(m_path, LogFileLimits{0, 0});

    for (int i = 0; i < 100; ++i) {
        LogMessage(std::string(1000, 'x'));
    }

    EXPECT_THAT(FilesInFolder(), ElementsAre("a.log"));
    EXPECT_THAT(MessagesIn(m_path), SizeIs(100));
}

TEST_F(CorePlatformLogFileTest, NamesWithoutAnExtensionAndHiddenNamesAreNumberedAtTheEnd) {
    const std::size_t line = LineLength(3);
    for (const char* name : {"log", ".log"}) {
        LogTo(m_folder.PathOf(name), LogFileLimits{line, 2});
        LogMessage("001");
        LogMessage("002");
    }

    EXPECT_THAT(FilesInFolder(), ElementsAre(".log", ".log.1", "log", "log.1"));
}

TEST_F(CorePlatformLogFileTest, WhenRenamingFailsLinesGoOnIntoTheSameFile) {
    const std::size_t line = LineLength(3);
    std::filesystem::create_directories(PathOfFullFile(1) + "/in the way");
    LogTo(m_path, LogFileLimits{line, 1});
    testing::internal::CaptureStderr();

    for (const char* text : {"001", "002", "003"}) {
        LogMessage(text);
    }

    EXPECT_THAT(LinesIn(testing::internal::GetCapturedStderr()),
                ElementsAre(HasSubstr("cannot begin a new log file: " + m_path)));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("001", "002", "003"));
    EXPECT_EQ(Increase(&LogStatistics::rotationErrors), 1u) << "it is not tried with every line";
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u);
}

TEST_F(CorePlatformLogFileTest, AFileThatSomebodyMovedAwayIsNotMovedAgain) {
    const std::size_t line = LineLength(3);
    LogTo(m_path, LogFileLimits{line, 3});
    LogMessage("001");
    std::filesystem::rename(m_path, m_folder.PathOf("moved.log"));

    LogMessage("002");

    EXPECT_THAT(FilesInFolder(), ElementsAre("a.log", "moved.log"));
    EXPECT_THAT(MessagesIn(m_folder.PathOf("moved.log")), ElementsAre("001"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("002"));
}

TEST_F(CorePlatformLogFileTest, LinesOfManyThreadsAreWholeAndNoneIsLostOverManyFiles) {
    constexpr int threadCount = 4;
    constexpr int each = 1000;
    LogTo(m_path, LogFileLimits{20'000, 1000});
    tarn::test::OnThreadsAtOnce(threadCount, [](int thread) {
        for (int n = 0; n < each; ++n) {
            LogMessage(std::to_string(thread) + "/" + std::to_string(n));
        }
    });

    std::set<std::string> all;
    std::size_t count = 0;
    for (const std::string& name : FilesInFolder()) {
        const std::string path = m_folder.PathOf(name);
        EXPECT_LE(std::filesystem::file_size(path), 20'000u);
        for (const std::string& message : MessagesIn(path)) {
            all.insert(message);
            ++count;
        }
    }
    EXPECT_EQ(count, std::size_t{threadCount} * each);
    EXPECT_EQ(all.size(), count);
    EXPECT_THAT(all, testing::Contains("3/999"));
    EXPECT_GT(FilesInFolder().size(), 10u);
}

TEST_F(CorePlatformLogFileTest, AForkedChildAndItsParentShareTheFile) {
    constexpr int each = 500;
    LogTo(m_path, LogFileLimits{20'000, 1000});
    const auto log = [](const char* who) {
        for (int n = 0; n < each; ++n) {
            LogMessage(who + std::to_string(n));
        }
        return true;
    };

    bool succeeded = false;
    std::thread waiting(
        [&] { succeeded = tarn::test::SucceedsInChild([&] { return log("child "); }); });
    log("parent ");
    waiting.join();

    ASSERT_TRUE(succeeded);
    std::set<std::string> all;
    for (const std::string& name : FilesInFolder()) {
        for (const std::string& message : MessagesIn(m_folder.PathOf(name))) {
            EXPECT_TRUE(all.insert(message).second) << message;
        }
    }
    EXPECT_EQ(all.size(), 2u * each);
}

// Devices are reached through a link in the test's own folder: were a file of the log renamed that
// must not be, it would only be the link.
TEST_F(CorePlatformLogFileTest, ADeviceThatIsFullLosesLinesAndSaysSoOnce) {
    std::filesystem::create_symlink("/dev/full", m_path);
    LogTo(m_path);
    testing::internal::CaptureStderr();

    for (int n = 0; n < 10; ++n) {
        LogMessage("lost");
    }

    EXPECT_THAT(LinesIn(testing::internal::GetCapturedStderr()),
                ElementsAre("log: cannot write to " + m_path + ": No space left on device, " +
                            std::to_string(GetLogStatistics().writeErrors - 9) + " so far"));
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 10u);
    EXPECT_EQ(Increase(&LogStatistics::lines), 0u);
    EXPECT_EQ(Increase(&LogStatistics::backEndExceptions), 0u);
}

TEST_F(CorePlatformLogFileTest, ADeviceIsNeverRenamed) {
    std::filesystem::create_symlink("/dev/null", m_path);
    LogTo(m_path, LogFileLimits{1, 1});

    LogMessage("gone");
    LogMessage("gone");

    EXPECT_EQ(Increase(&LogStatistics::lines), 2u);
    EXPECT_THAT(FilesInFolder(), ElementsAre("a.log"));
}

TEST_F(CorePlatformLogFileTest, AFullDiskLosesWholeLinesAndKeepsWhatIsThere) {
    const bool asExpected = tarn::test::SucceedsInChild([&] {
        SilenceStandardError();
        const std::size_t line = LineLength(3);
        LogTo(m_path);
        LimitFileSize(2 * line + line / 2);
        const uint64 linesBefore = Increase(&LogStatistics::lines);

        for (const char* text : {"001", "002", "003", "004"}) {
            LogMessage(text);
        }
        const bool counted = Increase(&LogStatistics::writeErrors) == 2 &&
                             Increase(&LogStatistics::lines) - linesBefore == 2;
        LimitFileSize(100 * line);
        LogMessage("005");
        return counted;
    });

    EXPECT_TRUE(asExpected);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("001", "002", Missing(2), "005"));
}

TEST_F(CorePlatformLogFileTest, AFullDiskCutsEveryPossiblePartOfALineOffAgain) {
    const std::size_t roughly = LineLength(3);

    for (std::size_t missing = 0; missing < roughly; missing += 3) {
        const std::string path = m_folder.PathOf(std::to_string(missing));
        const bool asExpected = tarn::test::SucceedsInChild([&] {
            SilenceStandardError();
            const std::size_t line = LineLength(3);
            LogTo(path);
            LogMessage("001");
            LimitFileSize(2 * line - missing);
            LogMessage("002");
            LimitFileSize(100 * line);
            LogMessage("003");
            const auto messages = MessagesIn(path);
            return missing == 0 ? messages == std::vector<std::string>{"001", "002", "003"}
                                : messages == std::vector<std::string>{"001", Missing(1), "003"};
        });

        EXPECT_TRUE(asExpected) << missing << " bytes missing: " << ContentOf(path);
    }
}

std::string ReadAvailable(int descriptor) {
    std::string text;
    std::vector<char> buffer(65536);
    for (ssize_t count = 0; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

TEST_F(CorePlatformLogFileTest, AHalfLineThatCannotBeCutOffIsPartedFromTheNextLine) {
    // A pipe whose reader goes away in the middle of a line.
    const std::string path = m_folder.PathOf("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const auto handlerBefore = signal(SIGPIPE, SIG_IGN);
    std::string start(10'000, '\0');
    const int first = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    LogTo(path);
    std::thread reader([&] {
        fcntl(first, F_SETFL, 0);
        EXPECT_EQ(read(first, start.data(), start.size()), static_cast<ssize_t>(start.size()));
        close(first);
    });
    testing::internal::CaptureStderr();
    LogMessage(std::string(1'000'000, 'x'));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Broken pipe"));
    reader.join();
    ASSERT_EQ(Increase(&LogStatistics::writeErrors), 1u);

    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    const std::string half = start + ReadAvailable(descriptor);
    LogMessage("next");
    const std::string rest = ReadAvailable(descriptor);
    close(descriptor);
    signal(SIGPIPE, handlerBefore);

    EXPECT_EQ(half.find('\n'), std::string::npos);
    const auto lines = LinesIn(half + rest);
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(nlohmann::json::parse(lines[1])["message"], Missing(1));
    EXPECT_EQ(nlohmann::json::parse(lines[2])["message"], "next");
}

// Fails for every line that holds "bad".
class MoodySink : public spdlog::sinks::base_sink<std::mutex> {
public:
    int flushes = 0;
    std::vector<std::string> lines;

private:
    void sink_it_(const spdlog::details::log_msg& msg) override {
        spdlog::memory_buf_t line;
        formatter_->format(msg, line);
        lines.emplace_back(line.data(), line.size());
        if (lines.back().find("bad") != std::string::npos) {
            throw std::runtime_error("moody");
        }
    }

    void flush_() override { ++flushes; }
};

TEST_F(CorePlatformLogFileTest, AnySinkGetsWholeLines) {
    std::ostringstream stream;
    ReplaceBackEnd(
        MakeJsonBackEnd(std::make_shared<spdlog::sinks::ostream_sink_mt>(stream), "a stream"));

    LogMessage("one");
    LogMessage("two %v {}");

    const auto lines = LinesIn(stream.str());
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(nlohmann::json::parse(lines[0])["message"], "one");
    EXPECT_EQ(nlohmann::json::parse(lines[1])["message"], "two %v {}");
}

TEST_F(CorePlatformLogFileTest, ASinksExceptionsAreCountedAsWriteErrors) {
    const auto sink = std::make_shared<MoodySink>();
    ReplaceBackEnd(MakeJsonBackEnd(sink, "the moody sink"));
    testing::internal::CaptureStderr();

    LogMessage("good");
    LogMessage("bad");
    LogMessage("bad");
    LogMessage("good");

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith("log: cannot write to the moody sink: moody, "));
    EXPECT_THAT(sink->lines, SizeIs(6));
    EXPECT_THAT(sink->lines[2], HasSubstr(Missing(1)));
    EXPECT_THAT(sink->lines[4], HasSubstr(Missing(1)));
    EXPECT_EQ(Increase(&LogStatistics::lines), 4u);
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 2u);
    EXPECT_EQ(Increase(&LogStatistics::backEndExceptions), 0u);
}

TEST_F(CorePlatformLogFileTest, ASinksOwnLevelIsRespected) {
    const auto sink = std::make_shared<MoodySink>();
    sink->set_level(spdlog::level::err);
    ReplaceBackEnd(MakeJsonBackEnd(sink, "sink"));

    LogMessage("warning", Warn);
    LogMessage("error", Error);

    ASSERT_THAT(sink->lines, SizeIs(1));
    EXPECT_THAT(sink->lines[0], HasSubstr("\"error\""));
    EXPECT_EQ(Increase(&LogStatistics::lines), 1u);
}

TEST_F(CorePlatformLogFileTest, FlushingTheLogFlushesTheSink) {
    const auto sink = std::make_shared<MoodySink>();
    ReplaceBackEnd(MakeJsonBackEnd(sink, "sink"));

    FlushLog();

    EXPECT_EQ(sink->flushes, 1);
}

TEST_F(CorePlatformLogFileTest, ABackEndWithoutASinkIsRefused) {
    EXPECT_THROW(MakeJsonBackEnd(nullptr, "nothing"), std::invalid_argument);
}

TEST_F(CorePlatformLogFileTest, AnEventMayBeMuchLargerThanAnyBuffer) {
    LogTo(m_path);
    const std::string text(3'000'000, 'x');

    LogMessage(text);
    LogMessage("small");
    LogMessage(text);

    EXPECT_THAT(MessagesIn(m_path), ElementsAre(text, "small", text));
}

}  // namespace
