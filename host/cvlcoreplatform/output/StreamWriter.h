#pragma once

#include "FileDescriptor.h"

#include <sys/types.h>
#include <sys/uio.h>

namespace cvlcoreplatform {

/// Writes to a descriptor that the host shares with others, without waiting for room. Whether such
/// a stream blocks is the host's choice, and holds for all who share it, so it is not touched.
///
/// For one line: what the descriptor is connected with may be something else with the next.
class StreamWriter {
public:
    /// A regular file does not wait; `descriptor` is not looked at.
    static StreamWriter OfFile(int descriptor) noexcept;
    static StreamWriter OfStream(int descriptor) noexcept;

    /// As `writev`, and fails with `EAGAIN` where that would wait.
    ssize_t Write(const iovec* parts, int count) noexcept;

private:
    enum class Way {
        Plain,        ///< it does not wait anyway
        Socket,       ///< told so with each call
        WithoutWait,  ///< likewise, where the kernel knows that of pipes
        OwnOpening,   ///< the same pipe or terminal, opened once more
        Pieces,       ///< looked at before each piece: another writer may still take the room
    };

    StreamWriter(int descriptor, Way way) noexcept : m_descriptor(descriptor), m_way(way) {}

    Way FindOtherWay() noexcept;
    ssize_t WritePiece(const iovec* parts, int count) const noexcept;

    int m_descriptor;
    Way m_way;
    FileDescriptor m_own;
};

}  // namespace cvlcoreplatform
