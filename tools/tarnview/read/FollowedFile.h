#pragma once

#include "read/InputFiles.h"
#include "read/LogScanner.h"

#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>

namespace tarnview {

/// A log file that is still written. It survives rotation: what was still written to the file that
/// was moved away is read first, then full files that came in between, then the new one. A file
/// that was truncated is read anew. Used by one thread.
class FollowedFile {
public:
    /// `path` and `problems` must live as long. Throws `std::system_error` if the file cannot be
    /// read; later on a file that is not there is waited for.
    FollowedFile(const std::string& path, LineParser& parser, Problems& problems);

    /// Reads all lines that have been written since the last call.
    void Poll(const LogScanner::OnLine& onLine);

private:
    struct Part;

    void Take(Part& part, const Place& place, const LogScanner::OnLine& onLine);
    void ReadLines(Part& part, const LogScanner::OnLine& onLine);
    void ReadRest(Part& part, const LogScanner::OnLine& onLine);
    void ReadMissed(const LogScanner::OnLine& onLine);
    std::unique_ptr<Part> Open(const std::string& path);
    std::size_t NumberOfMovedFile() const;

    const std::string& m_path;
    LineParser& m_parser;
    Problems& m_problems;
    std::shared_ptr<Part> m_part;
};

}  // namespace tarnview
