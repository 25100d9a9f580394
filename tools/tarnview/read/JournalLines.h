#pragma once

#include <string>
#include <vector>

namespace tarnview {

/// The journals beside a log, in the order of their names: files into which processes put lines
/// that are not in the log yet.
std::vector<std::string> JournalsOf(const std::string& log);

/// Whether a file is such a journal.
bool IsJournal(int descriptor);

/// The lines, with their ends, that an ended process has left in its journal and its log does not
/// have. None for a living process, which brings them into the log in a moment.
std::string LinesLeftIn(const std::string& journal, int descriptor);

}  // namespace tarnview
