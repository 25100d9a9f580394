#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarnview {

/// How far the logs have been pushed, kept in a file. A file of a log is known by its place in the
/// file system and by its beginning, so that it is found under another name after rotation, and
/// another file in its place is not taken for it. Used by one thread.
class PushCheckpoint {
public:
    struct FileId {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::uint64_t beginning = 0;  ///< stands for the first line

        bool operator==(const FileId&) const = default;
    };

    /// Of a descriptor that can be read from any place. The id of a file without a whole line is
    /// that of no other one.
    static FileId IdOf(int descriptor);

    /// Of files that are not known: 0.
    std::uint64_t OffsetOf(const FileId& id) const;
    void SetOffset(const FileId& id, std::uint64_t offset);

    /// Files that are not among these are forgotten.
    void KeepOnly(const std::vector<FileId>& ids);

    /// The begin lines of what has not ended.
    std::vector<std::string> openLines;

    /// A file that is not there is as good as an empty checkpoint. Throws `std::runtime_error` if
    /// it is no checkpoint, `std::system_error` if it cannot be read.
    void Load(const std::string& path);

    /// Replaces the file as a whole, also if the machine stops meanwhile. Throws
    /// `std::system_error`.
    void Save(const std::string& path) const;

private:
    struct Entry {
        FileId id;
        std::uint64_t offset = 0;
    };

    std::vector<Entry> m_files;
};

}  // namespace tarnview
