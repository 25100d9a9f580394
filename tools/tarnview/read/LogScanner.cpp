#include "read/LogScanner.h"

#include "read/LeftOut.h"
#include "read/LineBatches.h"
#include "read/LineReader.h"

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

LogScanner::LogScanner(std::vector<std::string> files, Problems& problems, OnBytes onBytes)
    : m_files(std::move(files)),
      m_problems(problems),
      m_onBytes(std::move(onBytes)),
      m_threads(UsableProcessors()),
      m_hasSeveralLogs(std::any_of(m_files.begin(), m_files.end(), [this](const std::string& file) {
          return LogOf(file) != LogOf(m_files.front());
      })) {}

void LogScanner::AllowAnotherPass() {
    m_isReadTwice = true;
}

void LogScanner::Scan(const ParserOptions& options, const OnLine& onLine) {
    m_lines = 0;
    m_bytesBefore += m_bytes;
    m_bytes = 0;
    for (const std::string& file : m_files) {
        ScanFile(file, options, onLine);
    }
    if (m_isFirstPass) {
        m_numbers.ReportGaps(m_problems);
    }
    m_isFirstPass = false;
}

void LogScanner::ScanFile(const std::string& file,
                          const ParserOptions& options,
                          const OnLine& onLine) {
    InputFile input = Open(file);
    const std::string_view name = file == standardInput ? "<stdin>" : std::string_view(file);
    Problems* const problems = m_isFirstPass ? &m_problems : nullptr;
    LineReader reader(input.Descriptor());
    ParserOptions parsing = options;
    parsing.host = m_hosts.Of(file);
    const bool looksForShared = m_isFirstPass && m_hasSeveralLogs;
    if (looksForShared) {
        m_sharedIds.BeginLog(LogOf(file), m_hosts.IsKnown(file));
    }
    LineExaminer examiner(problems, m_lateness);
    bool hasALog = false;
    const auto take = [&](const ParsedLine& parsed) {
        const Place place{name, parsed.number};
        const LogLine* const line = examiner.Examine(parsed, place);
        if (line == nullptr) {
            return;
        }
        hasALog = true;
        if (m_isFirstPass) {
            if (line->time != 0 && (m_firstTime == 0 || line->time < m_firstTime)) {
                m_firstTime = line->time;
            }
            m_numbers.Take(*line, place);
            if (looksForShared) {
                m_sharedIds.Take(line->process, line->time);
            }
            if (line->event == leftOutEvent) {
                m_numbers.TakeLeftOut(line->process, parsed.leftOut, place);
            }
        }
        onLine(*line, place);
    };
    try {
        LineBatches batches(reader, parsing, m_threads);
        while (const LineBatch* const batch = batches.Next()) {
            for (const ParsedLine& line : batch->Lines()) {
                take(line);
            }
            m_lines += batch->Lines().size();
            if (m_onBytes) {
                m_onBytes(m_bytesBefore + m_bytes + batch->BytesRead());
            }
        }
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), file);
    }
    m_lateness = examiner.Lateness();
    m_bytes += reader.BytesRead();
    if (reader.TakeRest()) {
        // The writer may be about to finish it, or was stopped in the middle of it.
        ++m_lines;
        if (problems != nullptr) {
            problems->Report(ProblemKind::CutLine, {name, reader.Number()}, "");
        }
        LineParser parser(parsing);
        const ParsedLine line = ParseLine(parser, reader.Text(), reader.Number());
        if (line.state != ParsedLine::State::Unreadable) {
            take(line);
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
