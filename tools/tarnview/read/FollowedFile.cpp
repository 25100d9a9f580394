#include "read/FollowedFile.h"

#include "read/LineReader.h"

#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarnview {

namespace {

// More full files than anybody keeps.
constexpr std::size_t mostFullFiles = 1000;

}  // namespace

struct FollowedFile::Part {
    Part(InputFile&& file, Problems& problems)
        : input(std::move(file)),
          reader(input.Descriptor()),
          examiner(&problems) {
        fstat(input.Descriptor(), &status);
    }

    bool IsAt(const std::string& path) const {
        struct stat other {};

        return stat(path.c_str(), &other) == 0 && other.st_dev == status.st_dev &&
               other.st_ino == status.st_ino;
    }

    bool IsTruncated() const {
        struct stat now {};

        return fstat(input.Descriptor(), &now) == 0 &&
               static_cast<std::uint64_t>(now.st_size) < reader.BytesRead();
    }

    InputFile input;
    LineReader reader;
    LineExaminer examiner;

    struct stat status {};
};

FollowedFile::FollowedFile(const std::string& path, LineParser& parser, Problems& problems)
    : m_path(path),
      m_parser(parser),
      m_problems(problems),
      m_part(Open(path)) {}

void FollowedFile::Poll(const LogScanner::OnLine& onLine) {
    ReadLines(*m_part, onLine);
    if (m_part->IsTruncated()) {
        m_part = Open(m_path);
        ReadLines(*m_part, onLine);
    }
    // Without a new file in its place the old one may still be written.
    if (m_part->IsAt(m_path) || access(m_path.c_str(), R_OK) != 0) {
        return;
    }
    // Its writer may have added lines since they were read above.
    ReadLines(*m_part, onLine);
    ReadRest(*m_part, onLine);
    ReadMissed(onLine);
    try {
        m_part = Open(m_path);
    } catch (const std::system_error&) {
        return;  // moved away once more; the next call finds the next one
    }
    ReadLines(*m_part, onLine);
}

void FollowedFile::ReadLines(Part& part, const LogScanner::OnLine& onLine) {
    for (auto result = part.reader.Next(); result != LineReader::Result::End;
         result = part.reader.Next()) {
        const Place place{m_path, part.reader.Number()};
        if (result == LineReader::Result::LongLine) {
            m_problems.Report(ProblemKind::LongLine, place, "");
        } else {
            Take(part, place, onLine);
        }
    }
}

void FollowedFile::Take(Part& part, const Place& place, const LogScanner::OnLine& onLine) {
    const ParsedLine parsed = ParseLine(m_parser, part.reader.Text(), place.line);
    if (const LogLine* const line = part.examiner.Examine(parsed, place)) {
        onLine(*line, place);
    }
}

// A file that is no longer written ends with whole lines, or was cut.
void FollowedFile::ReadRest(Part& part, const LogScanner::OnLine& onLine) {
    if (part.reader.TakeRest()) {
        const Place place{m_path, part.reader.Number()};
        m_problems.Report(ProblemKind::CutLine, place, "");
        Take(part, place, onLine);
    }
    if (const std::string fault = part.input.TakeFault(); !fault.empty()) {
        m_problems.Report(ProblemKind::BrokenFile, {m_path, part.reader.Number()}, fault);
    }
}

// Files that became full while nobody looked lie between the one that was read and the current one.
void FollowedFile::ReadMissed(const LogScanner::OnLine& onLine) {
    for (std::size_t number = NumberOfMovedFile(); number > 1; --number) {
        try {
            const auto path = FindFullFile(m_path, number - 1);
            if (!path) {
                continue;
            }
            const std::unique_ptr<Part> missed = Open(*path);
            ReadLines(*missed, onLine);
            ReadRest(*missed, onLine);
        } catch (const std::system_error&) {
            continue;  // removed in the meantime
        }
    }
}

std::size_t FollowedFile::NumberOfMovedFile() const {
    for (std::size_t number = 1; number < mostFullFiles; ++number) {
        const auto path = FindFullFile(m_path, number);
        if (!path) {
            return 0;
        }
        if (m_part->IsAt(*path)) {
            return number;
        }
    }
    return 0;
}

std::unique_ptr<FollowedFile::Part> FollowedFile::Open(const std::string& path) {
    return std::make_unique<Part>(InputFile(path), m_problems);
}

}  // namespace tarnview
