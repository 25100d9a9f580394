#pragma once

#include "activity/Activity.h"
#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstdint>
#include <simdjson.h>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// When each process wrote its last line, and whether another one then began to write to its log.
/// Used by one thread.
class ProcessWatch {
public:
    void Take(const LogLine& line, const Place& place);

    /// The time of the last line of a process; 0 if it wrote none.
    Microseconds LastTimeOf(const ProcessId& process) const;

    /// The host that it runs on, if lines were read with their tables and one has said so.
    std::string HostOf(const ProcessId& process) const;

    /// Whether another process started in the log to which this one wrote last, which has been
    /// silent since: it was ended, and its successor took the log over.
    bool IsReplaced(const ProcessId& process) const;

    /// What a process that crashed said last: why, on which thread, and which of its scopes were
    /// open. Empty if it did not crash, or went on afterwards.
    std::string LastWordsOf(const ProcessId& process) const;

    /// Those that have such words.
    std::vector<ProcessId> Crashed() const;

    /// Reports each process that was replaced while these activities of it were open, and each that
    /// crashed.
    void ReportDead(const std::vector<const Activity*>& open, Problems& problems) const;

private:
    void TakeHost(const LogLine& line);
    void TakeLastWords(const LogLine& line, const Place& place);

    struct Process {
        Microseconds lastTime = 0;
        std::uint64_t lastLine = 0;
        std::string log;
        std::string host;
        std::string lastWords;
        Microseconds crashTime = 0;
        std::string crashFile;
        std::uint64_t crashLine = 0;  // in its file
    };

    static bool HasCrashed(const Process& process);

    // Of a log: the last line that tells of a start, and of whose.
    struct Start {
        std::uint64_t line = 0;
        ProcessId process{};
    };

    std::unordered_map<ProcessId, Process, ProcessIdHash> m_processes;
    std::unordered_map<std::string, Start> m_starts;
    Process* m_current = nullptr;  // which wrote the line before
    ProcessId m_currentId;
    std::string m_file;  // of the line before
    std::string m_log;   // to which that belongs
    std::uint64_t m_lines = 0;
    simdjson::dom::parser m_parser;
};

}  // namespace tarnview
