#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ProcessTest {

/// A begin or end event of a log, as its reader sees it.
struct LogLine {
    bool isBegin = false;
    std::string name;
    std::string id;
    std::string sponsor;  ///< empty at the top
    std::int64_t pid = 0;
    std::int64_t tid = 0;
    // Of the scopes that are numbered: -1 for others.
    std::int64_t thread = -1;
    std::int64_t number = -1;
};

/// What processes have left behind in their log and its full files, from the oldest to the newest.
/// Read by a parser that has nothing in common with the writer.
class ProcessLog {
public:
    explicit ProcessLog(const std::string& path);

    /// Lines that are no JSON object, or no event and no message; with the file they are in. The
    /// last line of the newest file is among them when it has no line end.
    const std::vector<std::string>& BrokenLines() const { return m_broken; }

    /// Whether the log ends inside a line.
    bool EndsInsideLine() const { return m_endsInsideLine; }

    const std::vector<LogLine>& Lines() const { return m_lines; }

    const std::vector<std::string>& Messages() const { return m_messages; }

    /// How many files are full.
    std::size_t FullFiles() const { return m_fullFiles; }

    std::set<std::int64_t> ProcessIds() const;

    /// What is wrong with the order of events: scopes that begin or end twice, and ends without a
    /// beginning before them. Empty if all is well.
    std::vector<std::string> Faults() const;

    /// Names of the scopes that have begun and not ended.
    std::vector<std::string> Unended() const;

    std::size_t CountBegun(const std::string& name) const;

    /// The numbers of the ended scopes "work" of a process's thread, in the order of the log.
    std::vector<std::int64_t> NumbersOf(std::int64_t pid, std::int64_t thread) const;

private:
    void ReadFile(const std::string& path);
    void ReadLine(const std::string& path, const std::string& line);

    std::vector<std::string> m_broken;
    std::vector<LogLine> m_lines;
    std::map<std::string, std::pair<std::int64_t, std::int64_t>> m_numbers;
    std::vector<std::string> m_messages;
    std::size_t m_fullFiles = 0;
    bool m_endsInsideLine = false;
};

/// The numbers from 0 to `count` - 1.
std::vector<std::int64_t> NumbersUpTo(std::uint64_t count);

}  // namespace ProcessTest
