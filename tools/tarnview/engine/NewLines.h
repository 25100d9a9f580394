#pragma once

#include "engine/LoadCheckpoint.h"
#include "read/LineReader.h"
#include "read/Problems.h"

#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace tarnview {

/// The lines of logs beyond a checkpoint. Each look finds the files anew, so that growth, rotation,
/// compression, and a restart are all the same: what the checkpoint does not have is new. Used by
/// one thread.
class NewLines {
public:
    /// A line; `isLong` ones are only the beginning of one.
    struct Line {
        std::string_view text;
        Place place;
        bool isLong = false;
        bool isCut = false;  ///< the last one of a full file, without an end
    };

    using OnLine = std::function<void(const Line&)>;

    /// With `addsRotated`, the full files of the same sets are read as well. `checkpoint` must live
    /// as long.
    NewLines(std::vector<std::string> paths, bool addsRotated, LoadCheckpoint& checkpoint);

    /// Gives out all whole lines that are new. The checkpoint has each one when it is given out.
    /// Throws `std::system_error` if a file that was named cannot be read, but for files that
    /// vanish between two looks. What is wrong with a compressed file goes to `problems`.
    void Poll(Problems& problems, const OnLine& onLine);

    /// The name of a file as `Place` has it, for a file whose first line follows `base` others of
    /// the loader: files that had the same name one after the other have different ones. Lives as
    /// long as this.
    std::string_view NameOf(const std::string& path, std::uint64_t base);

private:
    struct Seen {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = 0;
        std::int64_t changed = 0;

        bool operator==(const Seen&) const = default;
    };

    void Read(const std::string& path, Problems& problems, const OnLine& onLine);

    const std::vector<std::string> m_paths;
    const bool m_addsRotated;
    LoadCheckpoint& m_checkpoint;
    bool m_isFirst = true;
    std::map<std::string, Seen> m_seen;  // as the files were before they were read last
    std::list<std::string> m_names;
    std::map<std::pair<std::string, std::uint64_t>, std::string_view> m_nameOf;
};

}  // namespace tarnview
