#include "ProcessThreads.h"

#include "cvlsys/host/HostState.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace Metrics {

// The kernel's line says "pid (name) state", and how many threads there are 17 numbers later. The
// name may hold anything. A main thread that has left stays as a zombie and is counted.
std::optional<ProcessThreads> ProcessThreads::Count() noexcept {
    const cvlsys::HostState hostState;
    const int file = open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return std::nullopt;
    }
    std::array<char, 1024> content{};
    const ssize_t length = read(file, content.data(), content.size() - 1);
    close(file);
    const std::size_t endOfName = std::string_view(content.data()).rfind(')');
    if (length <= 0 || endOfName == std::string_view::npos) {
        return std::nullopt;
    }
    char stateOfMain = 0;
    int threads = 0;
    const int found = std::sscanf(content.data() + endOfName + 1,
                                  " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s "
                                  "%*s %*s %d",
                                  &stateOfMain,
                                  &threads);
    if (found != 2) {
        return std::nullopt;
    }
    const bool hasMainLeft = stateOfMain == 'Z';
    return ProcessThreads{.running = hasMainLeft ? threads - 1 : threads,
                          .hasMainLeft = hasMainLeft};
}

}  // namespace Metrics
