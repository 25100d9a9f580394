#pragma once

#include <memory>
#include <spdlog/sinks/sink.h>
#include <string>

namespace cvlcoreplatform {

/// Appends lines to a file that can be changed on request. A message is the line, or lines with a
/// line end between any two; no formatter has a say. Any number of threads may use it.
class FileSink : public spdlog::sinks::sink {
public:
    /// Absolute; may lead over links.
    virtual const std::string& Path() const noexcept = 0;

    /// Renames the file as if it were full, and begins a new one; an empty file stays. False if
    /// that failed, or if it is no regular file. What failed is tried again a second later.
    virtual bool Rotate() = 0;

    /// Opens what is at the path. False if that failed; it is tried again then as well.
    virtual bool Reopen() = 0;

    // NOLINTBEGIN(readability-identifier-naming): named by spdlog

    void set_pattern(const std::string& /*pattern*/) override {}

    void set_formatter(std::unique_ptr<spdlog::formatter> /*formatter*/) override {}

    // NOLINTEND(readability-identifier-naming)
};

}  // namespace cvlcoreplatform
