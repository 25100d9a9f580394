#pragma once

#include <unistd.h>
#include <utility>

namespace cvlcoreplatform {

/// Owns an open file.
class FileDescriptor {
public:
    FileDescriptor() noexcept = default;

    explicit FileDescriptor(int descriptor) noexcept : m_descriptor(descriptor) {}

    FileDescriptor(FileDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    ~FileDescriptor() {
        if (IsOpen()) {
            close(m_descriptor);
        }
    }

    bool IsOpen() const noexcept { return m_descriptor >= 0; }

    int Get() const noexcept { return m_descriptor; }

    /// Gives it up without closing it.
    void Release() noexcept { m_descriptor = -1; }

private:
    int m_descriptor = -1;
};

}  // namespace cvlcoreplatform
