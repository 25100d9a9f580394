#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarnview {

/// The path that stands for the standard input stream.
inline constexpr const char* standardInput = "-";

/// The files to read, in the order in which to read them: each set of rotated files from the oldest
/// to the current one, the sets in the order in which they were first named. With `addsRotated`, a
/// file "a.log" brings "a.1.log", "a.2.log" and so on along, as far as they are there. A file that
/// is named twice, or is in two sets, is read once. Files that are not there are kept, so that
/// opening them says why.
std::vector<std::string> FilesToRead(const std::vector<std::string>& paths, bool addsRotated);

/// The log that a file belongs to, as the path of its current file: that of "a.3.log" is "a.log".
std::string LogOf(const std::string& path);

/// The path of the full file `number` of a log, 1 being the youngest: "a.log" has "a.1.log".
std::string PathOfFullFile(const std::string& path, std::size_t number);

/// The sizes together; 0 if one is not known, as that of a pipe.
std::uint64_t TotalSize(const std::vector<std::string>& files);

/// A descriptor that reads a file or the standard input stream, and closes it.
class InputFile {
public:
    /// Throws `std::system_error` naming the path if it cannot be opened for reading.
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&& other) noexcept;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    int Descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

}  // namespace tarnview
