#include "MisusedScope.h"

#include "cvlsys/TSystem.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace tarn {
namespace {

// The checks of cvlsys/MemoryTracking.h.
constexpr uint32 otherThread = 0x4A90166D;
constexpr uint32 outOfOrder = 0xB05D80FE;

constexpr std::size_t roomForName = 64;
using PrintableName = std::array<char, roomForName + sizeof("...")>;

bool IsContinuation(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Nothing in it breaks the line; what was cut says so, and ends with a whole character.
PrintableName Printable(std::string_view name, std::size_t room) noexcept {
    PrintableName printable{};
    std::size_t length = 0;
    for (; length < roomForName && length < name.size(); ++length) {
        const auto byte = static_cast<unsigned char>(name[length]);
        printable[length] = byte < 0x20 || byte == 0x7F || byte == '"' ? '?' : name[length];
    }
    if (length >= room || length == roomForName) {
        while (length > 0 && IsContinuation(printable[length - 1])) {
            --length;
        }
        if (length > 0 && static_cast<unsigned char>(printable[length - 1]) >= 0xC0) {
            --length;
        }
        std::memcpy(&printable[length], "...", sizeof("..."));
    }
    return printable;
}

}  // namespace

void ReportMisusedScope(std::string_view name,
                        std::size_t room,
                        uint64 threadAtBegin,
                        const LogicException& broken) noexcept {
    const PrintableName printable = Printable(name, room);
    const auto here = static_cast<unsigned long long>(TSystem::ThreadID());
    std::array<char, 512> line{};
    switch (broken.GetErrorCode()) {
        case otherThread:
            std::snprintf(line.data(),
                          line.size(),
                          "tarn: scope \"%s\" began on thread %llu and ended on thread %llu. A "
                          "measured scope ends on the thread that it began on. For work that "
                          "moves use a tarn::Activity, or tarn::Wrap what runs there "
                          "(docs/front-door.md).\n",
                          printable.data(),
                          static_cast<unsigned long long>(threadAtBegin),
                          here);
            break;
        case outOfOrder:
            std::snprintf(line.data(),
                          line.size(),
                          "tarn: scope \"%s\" ended on thread %llu while a measured scope that "
                          "began after it there was open. Measured scopes end in the reverse order "
                          "of their beginnings. For work that overlaps use a tarn::Activity "
                          "for each piece (docs/front-door.md).\n",
                          printable.data(),
                          here);
            break;
        default:
            std::snprintf(line.data(),
                          line.size(),
                          "tarn: scope \"%s\" ended on thread %llu with a broken invariant "
                          "(docs/errors.md, 0x%08X).\n",
                          printable.data(),
                          here,
                          static_cast<unsigned>(broken.GetErrorCode()));
            break;
    }
    // In one piece: other threads may be writing there, too.
    std::fputs(line.data(), stderr);
}

}  // namespace tarn
