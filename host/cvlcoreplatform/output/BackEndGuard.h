#pragma once

#include "cvlsys/host/DeliveryGuard.h"
#include "cvlsys/host/ReadWriteLock.h"

#include <memory>

namespace cvlcoreplatform {

/// A share in the use of the current back end, for work that is left for later:
/// `TLog::ReplaceBackEnd` waits until it is given back.
using BackEndUse = std::shared_ptr<const void>;

/// Who is inside the back end. Readers of the lock are those who log, for as long as the back end
/// works; a writer replaces the back end, and so knows that nobody is inside the old one.
struct BackEndAccess {
    cvlsys::ReadWriteLock lock;
    /// Of whom it is used besides: those who hold lines back for it. Under the lock.
    BackEndUse use = std::make_shared<char>();

    /// Made while the library is loaded, never destroyed.
    static BackEndAccess& Get();
};

/// Around all work of a back end, whether the logger asks for it or it was left for later. While
/// one exists, no fork happens, and what the back end logs itself is dropped. Not within another
/// one on the same thread.
class BackEndGuard {
public:
    BackEndGuard() noexcept;
    ~BackEndGuard();
    BackEndGuard(const BackEndGuard&) = delete;
    BackEndGuard& operator=(const BackEndGuard&) = delete;

private:
    const cvlsys::DeliveryGuard m_guard;
};

}  // namespace cvlcoreplatform
