#pragma once

#include "LogReport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <simdjson.h>

namespace packagesearch {

/// Makes activities of a log's lines. Hand it the files in the order in which they were written;
/// the lines of one process must not come from two threads at once.
class LogReader {
public:
    /// Without a process the lines of all are read.
    explicit LogReader(std::optional<std::uint32_t> process = std::nullopt);
    ~LogReader();
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    void ReadLines(const simdjson::padded_string& text);

    /// What was read, with the parts of each activity. Once, at the end.
    LogReport Finish();

private:
    class Lines;
    std::unique_ptr<Lines> m_lines;
};

}  // namespace packagesearch
