#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace benchmarks {

/// Where a benchmark lets lines go: a path in the folder for temporary files that nobody else uses.
/// What is there in the end is removed. Reading opens the file by its path, so flush what is
/// buffered before.
class OutputFile {
public:
    OutputFile();
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }

    /// 0 where there is no file.
    std::uint64_t Bytes() const;
    std::uint64_t Lines() const;

    /// The last line that holds `part`, of those near the end of the file; empty if there is none.
    std::string LastLineWith(const std::string& part) const;

private:
    std::filesystem::path m_path;
};

}  // namespace benchmarks
