#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// The journals beside a log, in the order of their names: files into which processes put lines
/// that are not in the log yet.
std::vector<std::string> JournalsOf(const std::string& log);

/// The log that a file of this name is a journal of, "a.log" of "a.log.4711.journal" and of
/// "a.log.4711.2.journal"; nothing of other names.
std::optional<std::string> LogOfJournal(const std::string& path);

/// Whether a file is such a journal.
bool IsJournal(int descriptor);

/// The lines, with their ends, that an ended process has left in its journal and its log does not
/// have. None for a living process, which brings them into the log in a moment.
std::string LinesLeftIn(const std::string& journal, int descriptor);

}  // namespace tarnview
