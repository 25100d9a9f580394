#include "cvlcoreplatform/host/LogBackEnd.h"

namespace TLog {

LogBackEnd::~LogBackEnd() = default;

void LogBackEnd::Flush() {}

bool LogBackEnd::Rotate() {
    return false;
}

bool LogBackEnd::Reopen() {
    return false;
}

std::shared_ptr<LogBackEnd> LogBackEnd::MakeSuccessor() const {
    return nullptr;
}

}  // namespace TLog
