#pragma once

#include <optional>

namespace Metrics {

/// The threads that the process has.
struct ProcessThreads {
    int running = 0;           ///< without a main thread that has left
    bool hasMainLeft = false;  ///< by `pthread_exit`

    /// Nothing where that cannot be found out. Costs some system calls, changes no `errno`.
    static std::optional<ProcessThreads> Count() noexcept;
};

}  // namespace Metrics
