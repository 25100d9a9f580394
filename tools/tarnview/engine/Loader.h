#pragma once

#include "engine/ActivityRow.h"
#include "engine/BlockSender.h"
#include "engine/LoadCheckpoint.h"
#include "engine/NewLines.h"
#include "model/Joiner.h"
#include "read/LineExaminer.h"

#include <cstdint>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Brings logs into an engine, every line once. Reads lines beyond the checkpoint, joins them to
/// activities, and collects these to blocks. A block is in the checkpoint before it is sent, with
/// the state behind it; so after a kill at any moment the next loader knows what may be on its way,
/// and sends just that again. While one block is on its way, the next one is made. Used by one
/// thread.
class Loader {
public:
    struct Counts {
        std::uint64_t activities = 0;
        std::uint64_t messages = 0;
        std::uint64_t rejected = 0;
    };

    struct Options {
        std::vector<std::string> paths;
        bool addsRotated = true;
        std::string checkpoint;        ///< a file; empty: none
        std::uint64_t blockLines = 1;  ///< at most
    };

    /// Reads the checkpoint. All must live as long. Throws as LoadCheckpoint::Load().
    Loader(const Options& options, BlockSender& sender, Problems& problems);

    /// Sends what an earlier loader may not have sent.
    void Resume();

    /// Loads what is new in the logs. All of it has arrived when this returns.
    void Poll();

    const Counts& Loaded() const { return m_counts; }

    std::size_t OpenCount() const { return m_joiner.OpenCount(); }

private:
    // Of a begin line: the file, by the place of its name, and the number within it.
    using BeginPlace = std::pair<const char*, std::uint64_t>;

    struct PlaceHash {
        std::size_t operator()(const BeginPlace& place) const {
            return std::hash<const char*>()(place.first) ^ (place.second * 0x9E3779B97F4A7C15U);
        }
    };

    void Take(const NewLines::Line& line);
    void TakeActivity(Activity&& activity);
    ActivityRow RowOf(const Activity& activity) const;
    void ListOpen();
    void Add(const char* table, std::uint16_t day);
    void SendBlock();
    Counts Send(const std::vector<PendingInsert>& pending,
                std::uint64_t loader,
                std::uint32_t block,
                bool mayBeThere);
    void WaitForBlock();
    void Reopen();

    const Options m_options;
    BlockSender& m_sender;
    Problems& m_problems;
    LoadCheckpoint m_checkpoint;
    NewLines m_lines;
    LineParser m_parser;
    std::optional<LineExaminer> m_examiner;
    const char* m_file = nullptr;  // of the line before
    Joiner m_joiner;
    std::unordered_map<BeginPlace, std::uint64_t, PlaceHash> m_beginLines;  // of the loader
    std::map<std::pair<std::uint64_t, std::int64_t>, bool> m_listed;        // begin line, process
    std::map<std::pair<const char*, std::uint16_t>, NativeWriter> m_block;
    std::uint64_t m_linesInBlock = 0;
    std::uint64_t m_bytesInBlock = 0;
    std::future<Counts> m_onItsWay;  // what was refused of it
    Counts m_counts;
};

}  // namespace tarnview
