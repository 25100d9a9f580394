// Shows the reader of compressed logs its input as a file: it must end, with lines or without, and
// whatever it decompresses to must be read.

#include "read/InputFiles.h"
#include "read/LineReader.h"
#include "read/Problems.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A few bytes may stand for gigabytes.
    constexpr std::uint64_t mostLines = 100'000;
    constexpr std::uint64_t mostBytes = std::uint64_t{16} << 20;
    constexpr std::size_t longestLine = std::size_t{1} << 20;
    const int file = memfd_create("log", MFD_CLOEXEC);
    if (file == -1 || write(file, data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    try {
        tarnview::InputFile input(path);
        tarnview::LineReader reader(input.Descriptor(), longestLine);
        while (reader.Next() != tarnview::LineReader::Result::End && reader.Number() < mostLines &&
               reader.BytesRead() < mostBytes) {
        }
        if (reader.Next() == tarnview::LineReader::Result::End) {
            input.TakeFault();
        }
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::not_supported) {
            std::abort();
        }
    }
    close(file);
    return 0;
}
