#pragma once

#include "FileDescriptor.h"
#include "JournalFormat.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace cvlcoreplatform {

/// A file beside the log, mapped into the process, that holds lines which the log does not have
/// yet. A line is safe from the end of the process as soon as it has been appended: the pages are
/// the kernel's. Only a crash of the system loses them, as it loses what was written and not
/// synced.
///
/// The file is locked for as long as its process lives and removed when it is empty at the end. One
/// thread at a time uses it.
class Journal {
public:
    /// With all its space set aside: a disk that fills up later ends no process. `log` is the path
    /// of the log without links. Throws `std::system_error`.
    Journal(const std::string& log, mode_t mode);

    /// Leaves the file to a later process if it holds lines.
    ~Journal();

    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// With a line end. False if there is no room for it.
    bool Append(std::string_view line) noexcept;

    /// All lines with their ends.
    std::string_view Lines() const noexcept;

    /// Before the lines are written to the log.
    void AnnounceLanding(const JournalLanding& landing) noexcept;

    /// After that; the first `bytes` of the lines are in the log.
    void HasLanded(std::size_t bytes) noexcept;

    /// In a forked child, whose parent has the journal.
    void LeaveToParent() noexcept;

private:
    void Map(const std::string& path, mode_t mode);

    JournalHead& Head() const noexcept { return *static_cast<JournalHead*>(m_memory); }

    char* Text() const noexcept { return static_cast<char*>(m_memory) + journalHeadBytes; }

    FileDescriptor m_file;
    std::string m_path;
    void* m_memory = nullptr;
};

}  // namespace cvlcoreplatform
