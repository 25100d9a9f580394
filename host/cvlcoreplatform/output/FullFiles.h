#pragma once

#include <cstddef>
#include <string>

namespace cvlcoreplatform {

/// The place of a full file: "a.log" is followed by "a.1.log", "a.2.log" and so on, of which the
/// highest number is the oldest. Number 0 is the file itself.
std::string PathOfFullFile(const std::string& path, std::size_t number);

/// Renames a file as a full one. Full files move up into the first gap, so that only the oldest of
/// `most` is ever replaced, and that only when there is no gap. Throws `std::system_error` when one
/// cannot be renamed, and `std::logic_error` when none is to be kept.
void MoveAway(const std::string& path, std::size_t most);

}  // namespace cvlcoreplatform
