#pragma once

#include <span>

/// What runs on a thread that crashes: it takes its turn, has the rescue done, and goes on to the
/// handler that was there before. Signal handlers all through: no allocation, no lock.
namespace Metrics::CrashHandler {

// For one thread at a time.

/// Throws `std::invalid_argument` if one of the signals cannot be handled.
void RequireHandleable(std::span<const int> signals);

/// Puts the handler in place for those of the signals that it is not in place for.
void Install(std::span<const int> signals) noexcept;

void InstallForTerminate() noexcept;

/// Puts back what was there before, where the handler is still the current one.
void Uninstall() noexcept;

/// Whether a thread is in its turn: a crash is being dealt with.
bool IsBusy() noexcept;

// For a fork, in the child: what other threads were at is over.
void StartAnewInChild() noexcept;

}  // namespace Metrics::CrashHandler
