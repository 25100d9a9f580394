#include "read/ProcessId.h"

#include "read/Printable.h"

namespace tarnview {

std::string ProcessName(const ProcessId& process) {
    const std::string number = std::to_string(process.number);
    return process.host.empty() ? number : Printable(process.host) + "/" + number;
}

}  // namespace tarnview
