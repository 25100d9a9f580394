#pragma once

#include "CapturingSink.h"
#include "Oracle.h"

#include <string>
#include <vector>

namespace figures {

/// A scope as the log shows it.
struct LoggedScope {
    int begins = 0;
    int ends = 0;
    std::string root;  ///< the id of the top of its tree; its own id if it is the top
    double elapsed = 0;
    double exclusiveTime = 0;
    Amounts inclusive{};
    Amounts exclusive{};
    int64 peak = 0;
    int64 threads = 0;
};

/// By the number of the scope. A log that lacks a figure, or has one of the wrong kind, gives a
/// text in `problem`.
struct LoggedScopes {
    std::vector<LoggedScope> scopes;
    std::string problem;
};

LoggedScopes ReadLog(const tarn::test::CapturedEvents& events, int scopes);

/// The log's times are whole milliseconds, written in seconds.
int64 Milliseconds(double seconds);

}  // namespace figures
