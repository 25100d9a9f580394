#include "read/LineReader.h"

#include <fcntl.h>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

using Result = LineReader::Result;

// A pipe whose writing end the test holds.
class LineReaderTest : public testing::Test {
public:
    ~LineReaderTest() override {
        close(m_ends[0]);
        CloseWriter();
    }

    LineReaderTest(const LineReaderTest&) = delete;
    LineReaderTest& operator=(const LineReaderTest&) = delete;
    LineReaderTest(LineReaderTest&&) = delete;
    LineReaderTest& operator=(LineReaderTest&&) = delete;

protected:
    LineReaderTest() {
        EXPECT_EQ(pipe2(m_ends, O_NONBLOCK), 0);
        fcntl(m_ends[1], F_SETPIPE_SZ, 1 << 20);
    }

    void Write(const std::string& text) const {
        ASSERT_EQ(write(m_ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void CloseWriter() {
        if (m_ends[1] != -1) {
            close(m_ends[1]);
            m_ends[1] = -1;
        }
    }

    int Reader() const { return m_ends[0]; }

private:
    int m_ends[2] = {-1, -1};
};

TEST_F(LineReaderTest, LinesAreCutAtTheirEndsAndNumberedFromOne) {
    Write("one\n\nthree\n");
    CloseWriter();
    LineReader reader(Reader());

    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "one");
    EXPECT_EQ(reader.Number(), 1U);
    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "");
    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "three");
    EXPECT_EQ(reader.Number(), 3U);
    EXPECT_EQ(reader.Next(), Result::End);
    EXPECT_FALSE(reader.TakeRest());
}

TEST_F(LineReaderTest, ALineWithoutAnEndIsGivenOutOnlyWhenAskedFor) {
    Write("one\ntw");
    CloseWriter();
    LineReader reader(Reader());

    ASSERT_EQ(reader.Next(), Result::Line);
    ASSERT_EQ(reader.Next(), Result::End);
    ASSERT_TRUE(reader.TakeRest());

    EXPECT_EQ(reader.Text(), "tw");
    EXPECT_EQ(reader.Number(), 2U);
}

TEST_F(LineReaderTest, ALineIsWholeWhenTheRestOfItHasBeenWritten) {
    char path[] = "/tmp/tarnview-line-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_EQ(write(file, "on", 2), 2);
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    LineReader reader(descriptor);

    ASSERT_EQ(reader.Next(), Result::End);
    ASSERT_EQ(write(file, "e\n", 2), 2);

    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "one");
    close(descriptor);
    close(file);
    unlink(path);
}

TEST_F(LineReaderTest, ALineOfManyPiecesIsWhole) {
    char path[] = "/tmp/tarnview-line-XXXXXX";
    const int file = mkstemp(path);
    const std::string text = std::string(std::size_t{16} << 20, 'x') + "\nnext\n";
    ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    lseek(file, 0, SEEK_SET);
    LineReader reader(file);

    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text().size(), std::size_t{16} << 20);
    EXPECT_EQ(reader.Text().find_first_not_of('x'), std::string_view::npos);
    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "next");
    close(file);
    unlink(path);
}

TEST_F(LineReaderTest, ALineBeyondTheLimitIsSkippedAndCounted) {
    Write("short\n" + std::string(5000, 'x') + "\nlast\n");
    CloseWriter();
    LineReader reader(Reader(), 100);

    EXPECT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Next(), Result::LongLine);
    EXPECT_EQ(reader.Number(), 2U);
    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "last");
    EXPECT_EQ(reader.Number(), 3U);
}

TEST_F(LineReaderTest, ALineBeyondTheLimitThatComesInPiecesIsOneLine) {
    char path[] = "/tmp/tarnview-line-XXXXXX";
    const int file = mkstemp(path);
    const std::string text = std::string(std::size_t{5} << 20, 'x') + "\nlast\n";
    ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    lseek(file, 0, SEEK_SET);
    LineReader reader(file, 100);

    EXPECT_EQ(reader.Next(), Result::LongLine);
    ASSERT_EQ(reader.Next(), Result::Line);
    EXPECT_EQ(reader.Text(), "last");
    EXPECT_EQ(reader.Number(), 2U);
    EXPECT_EQ(reader.Next(), Result::End);
    close(file);
    unlink(path);
}

}  // namespace
}  // namespace tarnview
