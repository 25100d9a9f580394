#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// The path that stands for the standard input stream.
inline constexpr const char* standardInput = "-";

/// The files to read, in the order in which to read them: each set of rotated files from the oldest
/// to the current one, the sets in the order in which they were first named. With `addsRotated`, a
/// file "a.log" brings "a.1.log", "a.2.log" and so on along, as far as they are there, and what
/// ended processes have left in its journals. A file that
/// is named twice, or is in two sets, is read once. The same holds for compressed files. Files that
/// are not there are kept, so that opening them says why.
std::vector<std::string> FilesToRead(const std::vector<std::string>& paths, bool addsRotated);

/// The log that a file belongs to, as the path of its current file: that of "a.3.log" and of its
/// journals is "a.log".
std::string LogOf(const std::string& path);

/// The path of the full file `number` of a log, 1 being the youngest, if it is there: "a.log" has
/// "a.1.log", or as other programs name it "a.log.1", each also compressed, as "a.1.log.gz".
std::optional<std::string> FindFullFile(const std::string& path, std::size_t number);

/// The sizes together; 0 if one is not known, as that of a pipe or of what is compressed.
std::uint64_t TotalSize(const std::vector<std::string>& files);

/// Whether a file is compressed, so that its size says little about what is in it.
bool IsCompressed(const std::string& path);

/// A descriptor that reads a file or the standard input stream, and closes it. What is compressed
/// is decompressed by a thread of its own, and read through a pipe. Used by one thread.
class InputFile {
public:
    /// Throws `std::system_error` naming the path if it cannot be opened for reading, or is
    /// compressed in a way that is not read.
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&& other) noexcept;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    int Descriptor() const { return m_descriptor; }

    /// After the end: what was wrong with a compressed file; empty if nothing was.
    std::string TakeFault();

private:
    class Decompressor;

    int m_descriptor;
    std::unique_ptr<Decompressor> m_decompressor;
};

}  // namespace tarnview
