#pragma once

#include "read/ProcessId.h"
#include "read/Timestamp.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarnview {

/// Finds processes that write to two logs at the same time. Mostly these are processes of two hosts
/// with the same number, which nobody has told apart. Used by one thread.
class SharedProcessIds {
public:
    struct Shared {
        ProcessId process;
        std::string log;
        std::string other;
    };

    /// Lines are of this log from here on. Two logs whose hosts are known are not compared.
    void BeginLog(const std::string& log, bool isHostKnown);

    void Take(const ProcessId& process, Microseconds time);

    /// The first one; nothing if there is none. Lines may be as much later than their times.
    std::optional<Shared> Find(Microseconds lateness) const;

private:
    struct Part {
        std::size_t log = 0;
        Microseconds first = 0;
        Microseconds last = 0;
    };

    std::vector<std::pair<std::string, bool>> m_logs;  // with whether their hosts are known
    std::size_t m_log = 0;                             // the one that is read
    std::map<ProcessId, std::vector<Part>> m_parts;
    ProcessId m_process;     // of the line before
    Part* m_part = nullptr;  // to which that belongs
};

}  // namespace tarnview
