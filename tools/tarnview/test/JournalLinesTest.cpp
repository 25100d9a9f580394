#include "read/JournalLines.h"

#include "LogFixture.h"
#include "read/InputFiles.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;

/// A journal with three lines beside a log.
class JournalLinesTest : public LogFixture {
protected:
    static constexpr std::string_view lines = "first\nsecond\nthird\n";

    static void Put(std::string& text, std::size_t offset, std::uint64_t value, std::size_t bytes) {
        std::memcpy(text.data() + offset, &value, bytes);
    }

    /// By its description in docs/log-format.md.
    std::string Journal(bool lands, std::uint64_t version = 1, std::uint64_t end = lines.size()) {
        struct stat log {};

        stat(PathOf("a.log").c_str(), &log);
        std::string text(4096 + 65536, '\0');
        text.replace(0, 8, "tarnjrnl");
        Put(text, 8, version, 4);
        Put(text, 12, 4711, 4);
        Put(text, 16, 0, 8);
        Put(text, 24, end, 8);
        Put(text, 32, lands ? 1 : 0, 4);
        Put(text, 40, log.st_dev, 8);
        Put(text, 48, log.st_ino, 8);
        Put(text, 56, static_cast<std::uint64_t>(log.st_size), 8);
        text.replace(4096, lines.size(), lines);
        return Write("a.log.4711.journal", text);
    }

    static std::string Read(const std::string& path) {
        const InputFile file(path);
        std::string text(200'000, '\0');
        const ssize_t bytes = read(file.Descriptor(), text.data(), text.size());
        text.resize(bytes < 0 ? 0 : static_cast<std::size_t>(bytes));
        return text;
    }

    void Append(const std::string& name, std::string_view text) {
        std::ofstream(PathOf(name), std::ios::app) << text;
    }
};

TEST_F(JournalLinesTest, JournalsAreReadBehindTheirLog) {
    const std::string log = Write("a.log", "before\n");
    const std::string full = Write("a.1.log", "");
    const std::string journal = Journal(false);
    const std::string second = Write("a.log.4711.2.journal", "");
    Write("b.log.4711.journal", "");
    Write("a.log.x.journal", "");
    Write("a.log.journal", "");

    EXPECT_THAT(FilesToRead({log}, true), ElementsAre(full, log, second, journal));
    EXPECT_THAT(FilesToRead({log}, false), ElementsAre(log));
}

TEST_F(JournalLinesTest, LinesThatTheLogHasNothingOfAreRead) {
    Write("a.log", "before\n");

    EXPECT_EQ(Read(Journal(false)), lines);
}

TEST_F(JournalLinesTest, WholeLinesThatTheLogHasAreNotReadTwice) {
    Write("a.log", "before\n");
    const std::string journal = Journal(true);
    Append("a.log", "first\nsec");

    EXPECT_EQ(Read(journal), "second\nthird\n");
    Write("a.log", "before\nfirst\nsecond\nthird\n");
    EXPECT_EQ(Read(journal), "");
}

TEST_F(JournalLinesTest, LinesAreFoundInTheFileThatTheLogWasRenamedTo) {
    Write("a.log", "before\n");
    const std::string journal = Journal(true);
    Append("a.log", "first\nsecond\n");
    std::filesystem::rename(PathOf("a.log"), PathOf("a.1.log"));
    Write("a.log", "other\n");

    EXPECT_EQ(Read(journal), "third\n");
}

TEST_F(JournalLinesTest, EqualLinesFromBeforeAreOthers) {
    Write("a.log", std::string(lines));

    EXPECT_EQ(Read(Journal(true)), lines);
}

TEST_F(JournalLinesTest, TheLinesOfALivingProcessAreLeftToIt) {
    Write("a.log", "before\n");
    const std::string journal = Journal(false);
    const int owner = open(journal.c_str(), O_RDWR | O_CLOEXEC);

    struct flock lock {};

    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    ASSERT_EQ(fcntl(owner, F_OFD_SETLK, &lock), 0);

    EXPECT_EQ(Read(journal), "");
    close(owner);
    EXPECT_EQ(Read(journal), lines);
}

TEST_F(JournalLinesTest, AJournalThatIsBeingMadeOrDamagedHasNoLines) {
    Write("a.log", "before\n");

    EXPECT_EQ(Read(Journal(false, 0)), "");
    EXPECT_EQ(Read(Journal(false, 1, 65537)), "");
    EXPECT_EQ(Read(Write("a.log.1.journal", "tarnjrnl")), "");
}

}  // namespace
}  // namespace tarnview
