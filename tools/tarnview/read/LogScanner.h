#pragma once

#include "read/Hosts.h"
#include "read/InputFiles.h"
#include "read/LineExaminer.h"
#include "read/LineNumbers.h"
#include "read/LineParser.h"
#include "read/LogLine.h"
#include "read/Problems.h"
#include "read/SharedProcessIds.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarnview {

/// Reads the lines of many files, in the order of the files. What is wrong with single lines,
/// clocks that go back, and lines that are missing, is reported in the first pass only. Used by one
/// thread; it has others parse lines while this one hears of those before them.
class LogScanner {
public:
    using OnLine = std::function<void(const LogLine&, const Place&)>;
    using OnBytes = std::function<void(std::uint64_t)>;

    /// `onBytes` hears now and then how many bytes have been read, in all passes together.
    /// `problems` must live as long as the scanner.
    LogScanner(std::vector<std::string> files, Problems& problems, OnBytes onBytes = {});

    /// How many threads parse, the caller among them; by itself as many as the process has
    /// processors. What is heard of the lines, and in which order, is the same with any number.
    void UseThreads(std::size_t count) { m_threads = count; }

    /// Which host each file is of; without a call they are all of one.
    void UseHosts(Hosts hosts) { m_hosts = std::move(hosts); }

    /// To be called before the first pass if there are to be more: what cannot be read again, as
    /// a pipe, is copied to a temporary file then.
    void AllowAnotherPass();

    /// Throws `std::system_error` naming the file if one cannot be read.
    void Scan(const ParserOptions& options, const OnLine& onLine);

    const std::vector<std::string>& Files() const { return m_files; }

    std::uint64_t Lines() const { return m_lines; }

    /// The earliest time of a line in the first pass; 0 if no line has one.
    Microseconds FirstTime() const { return m_firstTime; }

    std::uint64_t Bytes() const { return m_bytes; }

    /// Files that are not empty and hold no line of a log.
    const std::vector<std::string>& FilesWithoutALog() const { return m_filesWithoutALog; }

    /// Whether lines have numbers, by which it is known that none is missing.
    bool HasLineNumbers() const { return m_numbers.HasAny(); }

    /// A process whose lines are in two logs at the same time; nothing if there is none.
    std::optional<SharedProcessIds::Shared> SharedProcess() const {
        return m_sharedIds.Find(m_lateness);
    }

    /// Lines that programs have left out on purpose, by their keep rules.
    std::int64_t CountLeftOut() const { return m_numbers.CountLeftOut(); }

private:
    void ScanFile(const std::string& file, const ParserOptions& options, const OnLine& onLine);
    InputFile Open(const std::string& file);
    InputFile CopyOf(const InputFile& input);

    std::vector<std::string> m_files;
    std::map<std::string, InputFile> m_copies;
    std::map<std::string, std::string> m_copyFaults;  // of what was copied
    Problems& m_problems;
    OnBytes m_onBytes;
    std::size_t m_threads;
    Hosts m_hosts;
    LineNumbers m_numbers;
    SharedProcessIds m_sharedIds;
    bool m_hasSeveralLogs;
    Microseconds m_lateness = 0;  // see LineExaminer
    std::vector<std::string> m_filesWithoutALog;
    bool m_isReadTwice = false;
    bool m_isFirstPass = true;
    Microseconds m_firstTime = 0;
    std::uint64_t m_lines = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_bytesBefore = 0;  // of the passes before this one
};

}  // namespace tarnview
