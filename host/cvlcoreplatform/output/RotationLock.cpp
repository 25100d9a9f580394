#include "RotationLock.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace cvlcoreplatform {

namespace {

// A rotation takes well under a millisecond.
constexpr int attempts = 100;
constexpr std::chrono::milliseconds pause{1};

}  // namespace

RotationLock::RotationLock(const FileDescriptor& file) noexcept
    : m_descriptor(file.Get()),
      m_isRefused(!Set(F_WRLCK)) {
    for (int left = attempts; m_isRefused && left != 0; --left) {
        std::this_thread::sleep_for(pause);
        m_isRefused = !Set(F_WRLCK);
    }
}

RotationLock::~RotationLock() {
    if (!m_isRefused) {
        Set(F_UNLCK);
    }
}

// Where there are no locks, nobody can have locked it.
bool RotationLock::Set(short type) const noexcept {
    struct flock lock {};

    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    int result = 0;
    do {
        result = fcntl(m_descriptor, F_OFD_SETLK, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0 || (errno != EAGAIN && errno != EACCES);
}

}  // namespace cvlcoreplatform
