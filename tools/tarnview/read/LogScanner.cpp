#include "read/LogScanner.h"

#include "output/Progress.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarnview {

namespace {

constexpr std::uint64_t linesBetweenUpdates = 4096;
// Threads hand in their lines a little out of order; that is no clock that went back.
constexpr Microseconds clockTolerance = 1'000'000;

std::string Excerpt(std::string_view text) {
    constexpr std::size_t length = 60;
    return std::string(text.substr(0, length)) + (text.size() > length ? "..." : "");
}

void WriteAll(int descriptor, const char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t count = write(descriptor, data, size);
        if (count < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "temporary file");
        }
        if (count > 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
        }
    }
}

bool IsRegularFile(int descriptor) {
    struct stat status {};

    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

const LogLine* LineExaminer::Examine(std::string_view text, const Place& place) {
    const LineParser::Result result = m_parser.Parse(text, m_line);
    if (result == LineParser::Result::Unreadable) {
        Report(ProblemKind::UnreadableLine, place, m_parser.Detail() + ": " + Excerpt(text));
        return nullptr;
    }
    if (result == LineParser::Result::Flawed) {
        Report(m_parser.HasDuplicate() ? ProblemKind::DuplicateField : ProblemKind::WrongField,
               place,
               m_parser.Detail());
    }
    if (m_line.IsOfActivity() && (m_line.id.empty() || m_line.name.data() == nullptr)) {
        Report(ProblemKind::WrongField, place, m_line.id.empty() ? "id" : "name");
        return nullptr;
    }
    CheckClock(place);
    return &m_line;
}

void LineExaminer::CheckClock(const Place& place) {
    if (m_line.time == 0) {
        return;
    }
    if (m_line.time + clockTolerance < m_lastTime) {
        Report(ProblemKind::ClockJump,
               place,
               "from " + FormatTimestamp(m_lastTime) + " to " + FormatTimestamp(m_line.time));
    }
    m_lastTime = m_line.time;
}

void LineExaminer::Report(ProblemKind kind, const Place& place, std::string_view detail) {
    if (m_problems != nullptr) {
        m_problems->Report(kind, place, detail);
    }
}

LogScanner::LogScanner(std::vector<std::string> files, Problems& problems, Progress& progress)
    : m_files(std::move(files)),
      m_problems(problems),
      m_progress(progress) {}

void LogScanner::AllowSecondPass() {
    m_isReadTwice = true;
    m_progress.ExpectSecondPass();
}

void LogScanner::Scan(const ParserOptions& options, const OnLine& onLine) {
    LineParser parser(options);
    m_lines = 0;
    m_bytesBefore = m_bytes;
    m_bytes = 0;
    for (const std::string& file : m_files) {
        ScanFile(file, parser, onLine);
    }
    m_progress.Clear();
    m_isFirstPass = false;
}

void LogScanner::ScanFile(const std::string& file, LineParser& parser, const OnLine& onLine) {
    const InputFile input = Open(file);
    const std::string_view name = file == standardInput ? "<stdin>" : std::string_view(file);
    Problems* const problems = m_isFirstPass ? &m_problems : nullptr;
    LineReader reader(input.Descriptor());
    LineExaminer examiner(parser, problems);
    const auto take = [&] {
        const Place place{name, reader.Number()};
        if (const LogLine* const line = examiner.Examine(reader.Text(), place)) {
            onLine(*line, place);
        }
    };
    try {
        for (auto result = reader.Next(); result != LineReader::Result::End;
             result = reader.Next()) {
            if (result == LineReader::Result::Line) {
                take();
            } else if (problems != nullptr) {
                problems->Report(ProblemKind::LongLine, {name, reader.Number()}, "");
            }
            if (++m_lines % linesBetweenUpdates == 0) {
                m_progress.Update(m_bytesBefore + m_bytes + reader.BytesRead());
            }
        }
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), file);
    }
    m_bytes += reader.BytesRead();
    if (reader.TakeRest()) {
        // The writer may be about to finish it, or was stopped in the middle of it.
        ++m_lines;
        if (problems != nullptr) {
            problems->Report(ProblemKind::CutLine, {name, reader.Number()}, "");
        }
        LogLine line;
        if (parser.Parse(reader.Text(), line) != LineParser::Result::Unreadable) {
            take();
        }
    }
}

InputFile LogScanner::Open(const std::string& file) {
    const auto known = m_copies.find(file);
    if (known == m_copies.end()) {
        InputFile input(file);
        if (!m_isReadTwice || (file != standardInput && IsRegularFile(input.Descriptor()))) {
            return input;
        }
        m_copies.emplace(file, CopyOf(input));
        return Open(file);
    }
    const std::string path = "/proc/self/fd/" + std::to_string(known->second.Descriptor());
    return InputFile(path);
}

// Without a name, so that it vanishes with the program.
InputFile LogScanner::CopyOf(const InputFile& input) {
    char path[] = "/tmp/tarnview-XXXXXX";
    const int descriptor = mkostemp(path, O_CLOEXEC);
    if (descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), "temporary file");
    }
    InputFile copy(std::string("/proc/self/fd/") + std::to_string(descriptor));
    unlink(path);
    std::vector<char> buffer(std::size_t{1} << 16);
    ssize_t count = 0;
    while ((count = read(input.Descriptor(), buffer.data(), buffer.size())) != 0) {
        if (count > 0) {
            WriteAll(descriptor, buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            close(descriptor);
            throw std::system_error(errno, std::generic_category(), "standard input");
        }
    }
    close(descriptor);
    return copy;
}

}  // namespace tarnview
