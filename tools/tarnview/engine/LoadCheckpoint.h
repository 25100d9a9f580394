#pragma once

#include "engine/NativeWriter.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tarnview {

/// What one request inserts: rows of one table and one day, so that the engine takes all or none.
struct PendingInsert {
    std::string table;
    std::uint16_t day = 0;
    std::uint64_t rows = 0;
    std::string columns;
    std::string data;  ///< a block in the format Native
};

/// How far logs have been loaded, in a file of its own: everything that a loader must know to go on
/// after it was killed at any moment. The block that is on its way is in it, byte for byte, so that
/// it can be sent again as it was. Used by one thread.
class LoadCheckpoint {
public:
    /// Of a file of a log, whatever its name is now: it is known by its first line, and by that
    /// also when it was compressed or copied meanwhile.
    using FileId = std::pair<std::uint64_t, std::uint64_t>;

    struct File {
        std::uint64_t offset = 0;  ///< behind the last line that was read, decompressed
        std::uint64_t lines = 0;   ///< up to there
        std::uint64_t base = 0;    ///< lines of the loader before the file's first one
    };

    static FileId IdOf(std::string_view firstLine);

    std::uint64_t loader = 0;  ///< tells its rows from those of others
    std::uint32_t block = 0;   ///< number of the last block
    std::uint64_t lines = 0;   ///< that were read, of all files
    std::map<FileId, File> files;
    std::string open;  ///< rows of what has begun and not ended, as a block; empty: none
    std::vector<PendingInsert> pending;

    /// False if there is no such file. Throws `std::runtime_error` if it is no checkpoint,
    /// `std::system_error` if it cannot be read.
    bool Load(const std::string& path);

    /// Replaces the file as a whole, also if the machine stops meanwhile. Throws
    /// `std::system_error`.
    void Save(const std::string& path) const;
};

/// Keeps others from using a checkpoint at the same time, as long as it lives.
class CheckpointLock {
public:
    /// Throws `std::runtime_error` if another process has it, `std::system_error` if the file
    /// beside the checkpoint cannot be made.
    explicit CheckpointLock(const std::string& checkpoint);
    ~CheckpointLock();
    CheckpointLock(const CheckpointLock&) = delete;
    CheckpointLock& operator=(const CheckpointLock&) = delete;

private:
    int m_descriptor;
};

}  // namespace tarnview
