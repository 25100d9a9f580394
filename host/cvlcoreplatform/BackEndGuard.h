#pragma once

namespace TLog {

// Of the logger.
void LockBackEnd() noexcept;
void UnlockBackEnd() noexcept;

}  // namespace TLog

namespace cvlcoreplatform {

/// Around work of a back end that the logger has not asked for: no fork happens meanwhile, and what
/// the back end logs itself is dropped. Not within a call by the logger.
class BackEndGuard {
public:
    BackEndGuard() noexcept { TLog::LockBackEnd(); }

    ~BackEndGuard() { TLog::UnlockBackEnd(); }

    BackEndGuard(const BackEndGuard&) = delete;
    BackEndGuard& operator=(const BackEndGuard&) = delete;
};

}  // namespace cvlcoreplatform
