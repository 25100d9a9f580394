#include "read/LogScanner.h"

#include "LogFixture.h"
#include "read/LineBatches.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::HasSubstr;

class LogScannerTest : public LogFixture {
protected:
    // What is heard of the lines and of what is wrong with them, in its order.
    struct Heard {
        std::vector<std::string> lines;
        std::string problems;
        std::uint64_t count = 0;
        std::uint64_t bytes = 0;

        bool operator==(const Heard&) const = default;
    };

    static Heard Scan(const std::vector<std::string>& files, std::size_t threads) {
        Heard heard;
        std::ostringstream errors;
        Problems problems(errors, 100'000);
        LogScanner scanner(files, problems);
        scanner.UseThreads(threads);
        scanner.Scan({.wantsTables = true}, [&](const LogLine& line, const Place& place) {
            std::ostringstream text;
            text << place.file << ':' << place.line << ' ' << line.time << ' ' << line.id << ' '
                 << line.name << ' ' << line.user << ' ' << line.body << ' ' << line.elapsed;
            heard.lines.push_back(text.str());
        });
        heard.problems = errors.str();
        heard.count = scanner.Lines();
        heard.bytes = scanner.Bytes();
        return heard;
    }

    // Of many batches: good lines, and each kind of what is wrong with one.
    static std::string ManyLines(int count) {
        std::string text;
        for (int number = 0; number < count; ++number) {
            const std::string id = std::to_string(number);
            LineText line{.id = id, .milliseconds = number, .user = "a\\tb\\u00e9" + id};
            if (number % 501 == 0) {
                text += "no line " + id + "\n";
            } else if (number % 503 == 0) {
                text += R"({"message":"twice","pid":1,"message":")" + id + "\"}\n";
            } else if (number % 509 == 0) {
                text += R"({"message":"wrong","user":)" + id + "}\n";
            } else if (number % 1511 == 0) {
                line.milliseconds -= 1500;
                text += line.ToString() + "\n";
            } else {
                line.body = R"({"note":")" +
                            std::string(static_cast<std::size_t>(number % 700), 'x') + "\"}";
                text += line.ToString() + "\n";
            }
        }
        return text;
    }
};

TEST_F(LogScannerTest, TheSameIsHeardWithAnyNumberOfThreads) {
    const std::vector<std::string> files{Write("a.log", ManyLines(6'000)),
                                         Write("b.log", ""),
                                         Write("c.log", ManyLines(10) + R"({"message":"cut)"),
                                         Write("d.log", ManyLines(3'000) + R"({"message":"m"})")};

    const Heard one = Scan(files, 1);

    ASSERT_GT(one.bytes, 3'000'000U) << "too little for several batches";
    ASSERT_GT(one.lines.size(), 8'900U);
    EXPECT_THAT(one.lines[1], HasSubstr("a\tb\u00e92"));
    EXPECT_THAT(one.problems, HasSubstr("a.log:502: "));
    EXPECT_TRUE(Scan(files, 2) == one);
    EXPECT_TRUE(Scan(files, 7) == one);
}

TEST_F(LogScannerTest, AVeryLongLineIsHeardAmongOthers) {
    const std::string wide(3'000'000, 'w');
    const std::string text = LineText{.id = "1"}.ToString() + "\n" +
                             LineText{.id = "2", .user = wide}.ToString() + "\n" +
                             LineText{.id = "3"}.ToString() + "\n" + ManyLines(2'000);
    const std::vector<std::string> files{Write("a.log", text)};

    const Heard one = Scan(files, 1);

    ASSERT_GT(one.lines.size(), 3U);
    EXPECT_THAT(one.lines[1], HasSubstr(wide));
    EXPECT_TRUE(Scan(files, 3) == one);
}

TEST_F(LogScannerTest, AnExceptionOutOfTheCallEndsTheScan) {
    const std::vector<std::string> files{Write("a.log", ManyLines(6'000))};
    std::ostringstream errors;
    Problems problems(errors);
    LogScanner scanner(files, problems);
    scanner.UseThreads(3);
    int lines = 0;

    EXPECT_THROW(scanner.Scan({},
                              [&](const LogLine&, const Place&) {
                                  if (++lines == 1'000) {
                                      throw std::runtime_error("enough");
                                  }
                              }),
                 std::runtime_error);
    EXPECT_EQ(lines, 1'000);
}

// Memory of this process that ends where nothing is mapped: behind its lines, reading fails.
TEST_F(LogScannerTest, LinesBeforeAnErrorOfReadingAreHeardFirst) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const memory =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const text = static_cast<char*>(memory);
    munmap(text + page, page);
    memset(text, '\n', page);
    const std::string line = R"({"message":"before"})";
    memcpy(text, line.data(), line.size());
    const int file = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    ASSERT_NE(lseek64(file, static_cast<off64_t>(reinterpret_cast<std::uintptr_t>(text)), SEEK_SET),
              -1);
    LineReader reader(file);
    LineBatches batches(reader, {}, 2);

    const LineBatch* const batch = batches.Next();
    ASSERT_NE(batch, nullptr);
    EXPECT_EQ(batch->Lines()[0].line.message, "before");
    EXPECT_THROW(batches.Next(), std::system_error);
    EXPECT_EQ(batches.Next(), nullptr);
    close(file);
    munmap(text, page);
}

TEST_F(LogScannerTest, TheProcessMayUseAProcessorAtLeast) {
    EXPECT_GE(UsableProcessors(), 1U);
}

}  // namespace
}  // namespace tarnview
