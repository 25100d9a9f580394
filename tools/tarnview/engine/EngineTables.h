#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarnview {

/// The tables that hold logs in the engine.
namespace tables {
inline constexpr const char* activities = "activities";    ///< that have ended
inline constexpr const char* open = "open_activities";     ///< that had not when they were loaded
inline constexpr const char* messages = "messages";        ///< and diagnostics: of no activity
inline constexpr const char* rejected = "rejected_lines";  ///< that are no lines of a log
}  // namespace tables

/// What makes the database and the tables, if they are not there. With a cluster, each is a
/// replicated table on each shard, and one of the usual name that distributes over them: by root,
/// so that a tree lies on one shard.
std::vector<std::string> StatementsToCreate(const std::string& database,
                                            const std::string& cluster);

}  // namespace tarnview
