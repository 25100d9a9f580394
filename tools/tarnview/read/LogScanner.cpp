#include "read/LogScanner.h"

#include <algorithm>
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

bool IsRegularFile(const std::string& path) {
    struct stat status {};

    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
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
    CheckLosses(place);
    return &m_line;
}

// The host begins a report so, which names each kind of loss with its number:
// "Missing in this log: refused events: 3; lines that could not be written: 12".
void LineExaminer::CheckLosses(const Place& place) {
    constexpr std::string_view beginning = "Missing in this log";
    if (m_line.kind != LineKind::Message ||
        m_line.message.substr(0, beginning.size()) != beginning) {
        return;
    }
    std::uint64_t lost = 0;
    std::uint64_t number = 0;
    for (const char letter : m_line.message.substr(beginning.size())) {
        if (letter >= '0' && letter <= '9') {
            constexpr std::uint64_t most = 1'000'000'000'000'000;
            number = std::min(number * 10 + static_cast<std::uint64_t>(letter - '0'), most);
        } else {
            lost += std::exchange(number, 0);
        }
    }
    lost += number;
    if (m_problems != nullptr) {
        m_problems->Report(
            ProblemKind::LostLines, place, m_line.message, std::max<std::uint64_t>(lost, 1));
    }
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

LogScanner::LogScanner(std::vector<std::string> files, Problems& problems, OnBytes onBytes)
    : m_files(std::move(files)),
      m_problems(problems),
      m_onBytes(std::move(onBytes)) {}

void LogScanner::AllowAnotherPass() {
    m_isReadTwice = true;
}

void LogScanner::Scan(const ParserOptions& options, const OnLine& onLine) {
    LineParser parser(options);
    m_lines = 0;
    m_bytesBefore += m_bytes;
    m_bytes = 0;
    for (const std::string& file : m_files) {
        ScanFile(file, parser, onLine);
    }
    if (m_isFirstPass) {
        m_numbers.ReportGaps(m_problems);
    }
    m_isFirstPass = false;
}

void LogScanner::ScanFile(const std::string& file, LineParser& parser, const OnLine& onLine) {
    InputFile input = Open(file);
    const std::string_view name = file == standardInput ? "<stdin>" : std::string_view(file);
    Problems* const problems = m_isFirstPass ? &m_problems : nullptr;
    LineReader reader(input.Descriptor());
    LineExaminer examiner(parser, problems);
    bool hasALog = false;
    const auto take = [&] {
        const Place place{name, reader.Number()};
        if (const LogLine* const line = examiner.Examine(reader.Text(), place)) {
            hasALog = true;
            if (m_isFirstPass) {
                if (line->time != 0 && (m_firstTime == 0 || line->time < m_firstTime)) {
                    m_firstTime = line->time;
                }
                m_numbers.Take(*line, place);
            }
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
            if (++m_lines % linesBetweenUpdates == 0 && m_onBytes) {
                m_onBytes(m_bytesBefore + m_bytes + reader.BytesRead());
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
    const auto copyFault = m_copyFaults.find(file);
    const std::string fault =
        copyFault == m_copyFaults.end() ? input.TakeFault() : copyFault->second;
    if (!fault.empty() && problems != nullptr) {
        problems->Report(ProblemKind::BrokenFile, {name, reader.Number()}, fault);
    }
    if (m_isFirstPass && !hasALog && (reader.BytesRead() != 0 || !fault.empty())) {
        m_filesWithoutALog.emplace_back(name);
    }
}

InputFile LogScanner::Open(const std::string& file) {
    const auto known = m_copies.find(file);
    if (known == m_copies.end()) {
        InputFile input(file);
        if (!m_isReadTwice || (file != standardInput && IsRegularFile(file))) {
            return input;
        }
        m_copies.emplace(file, CopyOf(input));
        m_copyFaults.emplace(file, input.TakeFault());
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
