#pragma once

#include "FileDescriptor.h"

namespace cvlcoreplatform {

/// Keeps other processes from renaming or cutting the same file at the same time, as far as the
/// file system knows locks. It belongs to the opening of the file, not to the process: it does not
/// end when the host closes another descriptor of the file, and is not shared by openings.
class RotationLock {
public:
    /// Waits for a moment only: any process that may read the file can lock it, and keep it locked.
    explicit RotationLock(const FileDescriptor& file) noexcept;
    ~RotationLock();
    RotationLock(const RotationLock&) = delete;
    RotationLock& operator=(const RotationLock&) = delete;

    /// Whether somebody else has locked the file.
    bool IsRefused() const noexcept { return m_isRefused; }

private:
    bool Set(short type) const noexcept;

    int m_descriptor;
    bool m_isRefused;
};

}  // namespace cvlcoreplatform
