#include "commands/LocalProcess.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <sys/types.h>
#include <unistd.h>

namespace tarnview {

namespace {

// When the system was started, in seconds since 1970.
std::optional<std::int64_t> BootTime() {
    std::ifstream file("/proc/stat");
    for (std::string word; file >> word;) {
        std::int64_t seconds = 0;
        if (word == "btime" && file >> seconds) {
            return seconds;
        }
    }
    return std::nullopt;
}

// The name of the program, which may hold anything, ends with the last parenthesis; the time is the
// twentieth field behind it.
std::optional<Microseconds> StartOf(std::int64_t process) {
    constexpr int fieldsBefore = 19;
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text, '\0');
    const std::size_t nameEnd = text.rfind(')');
    if (nameEnd == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(text.substr(nameEnd + 1));
    std::string skipped;
    for (int field = 0; field < fieldsBefore; ++field) {
        fields >> skipped;
    }
    std::int64_t ticks = 0;
    const auto boot = BootTime();
    const std::int64_t ticksPerSecond = sysconf(_SC_CLK_TCK);
    if (!(fields >> ticks) || !boot || ticksPerSecond <= 0) {
        return std::nullopt;
    }
    return (*boot + ticks / ticksPerSecond) * 1'000'000;
}

}  // namespace

bool IsThisHost(const std::string& host) {
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, HOST_NAME_MAX) == 0 && host == name;
}

bool IsStillThere(std::int64_t process, Microseconds lastLine) {
    constexpr Microseconds tolerance = 2'000'000;  // the start is known to the second
    if (process <= 0 || process > std::numeric_limits<pid_t>::max() ||
        (kill(static_cast<pid_t>(process), 0) != 0 && errno != EPERM)) {
        return false;
    }
    const auto start = StartOf(process);
    return !start || *start <= lastLine + tolerance;
}

}  // namespace tarnview
