#include "StreamWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cvlcoreplatform {

StreamWriter StreamWriter::OfFile(int descriptor) noexcept {
    return {descriptor, Way::Plain};
}

StreamWriter StreamWriter::OfStream(int descriptor) noexcept {
    struct stat status {};

    if (fstat(descriptor, &status) != 0) {
        return {descriptor, Way::Plain};
    }
    if (S_ISSOCK(status.st_mode)) {
        return {descriptor, Way::Socket};
    }
    const bool mayWait =
        S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && isatty(descriptor) != 0);
    return {descriptor, mayWait ? Way::WithoutWait : Way::Plain};
}

ssize_t StreamWriter::Write(const iovec* parts, int count) noexcept {
    switch (m_way) {
        case Way::Socket: {
            msghdr message{};
            message.msg_iov = const_cast<iovec*>(parts);
            message.msg_iovlen = static_cast<std::size_t>(count);
            return sendmsg(m_descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        case Way::WithoutWait: {
            const ssize_t taken = pwritev2(m_descriptor, parts, count, -1, RWF_NOWAIT);
            if (taken >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL)) {
                return taken;
            }
            m_way = FindOtherWay();
            return Write(parts, count);
        }
        case Way::OwnOpening:
            return writev(m_own.Get(), parts, count);
        case Way::Pieces:
            return WritePiece(parts, count);
        case Way::Plain:
            break;
    }
    return writev(m_descriptor, parts, count);
}

StreamWriter::Way StreamWriter::FindOtherWay() noexcept {
    const int flags = fcntl(m_descriptor, F_GETFL);
    if (flags >= 0 && (flags & O_NONBLOCK) != 0) {
        return Way::Plain;
    }
    std::array<char, 32> path{};
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", m_descriptor);
    // Another process's user may own it, and not every process sees this folder.
    m_own = FileDescriptor(open(path.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return m_own.IsOpen() ? Way::OwnOpening : Way::Pieces;
}

// A pipe that is said to have room has it for so many bytes.
ssize_t StreamWriter::WritePiece(const iovec* parts, int count) const noexcept {
    pollfd stream{m_descriptor, POLLOUT, 0};
    if (poll(&stream, 1, 0) <= 0) {
        errno = EAGAIN;
        return -1;
    }
    const iovec* const part =
        std::find_if(parts, parts + count, [](const iovec& one) { return one.iov_len != 0; });
    return part == parts + count
               ? 0
               : write(
                     m_descriptor, part->iov_base, std::min(part->iov_len, std::size_t{PIPE_BUF}));
}

}  // namespace cvlcoreplatform
