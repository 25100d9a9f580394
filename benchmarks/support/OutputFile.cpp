#include "support/OutputFile.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <unistd.h>
#include <vector>

namespace benchmarks {

namespace {

std::filesystem::path NewPath() {
    static std::atomic<unsigned> number{0};
    return std::filesystem::temp_directory_path() /
           ("tarn_benchmark_" + std::to_string(getpid()) + "_" + std::to_string(++number) + ".log");
}

}  // namespace

OutputFile::OutputFile() : m_path(NewPath()) {}

OutputFile::~OutputFile() {
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

std::uint64_t OutputFile::Bytes() const {
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(m_path, error);
    return error ? 0 : bytes;
}

std::uint64_t OutputFile::Lines() const {
    std::ifstream file(m_path, std::ios::binary);
    std::vector<char> block(std::size_t{1024} * 1024);
    std::ptrdiff_t lines = 0;
    while (file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        lines += std::count(block.data(), block.data() + file.gcount(), '\n');
    }
    return static_cast<std::uint64_t>(lines);
}

std::string OutputFile::LastLineWith(const std::string& part) const {
    // The lines of what ends meanwhile may come after the one that is looked for.
    constexpr std::streamoff tail = std::streamoff{64} * 1024;
    std::ifstream file(m_path, std::ios::binary | std::ios::ate);
    file.seekg(std::max<std::streamoff>(0, static_cast<std::streamoff>(file.tellg()) - tail));
    std::string found;
    for (std::string line; std::getline(file, line);) {
        if (line.find(part) != std::string::npos) {
            found = line;
        }
    }
    return found;
}

}  // namespace benchmarks
