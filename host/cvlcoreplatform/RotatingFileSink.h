#pragma once

#include "ErrorReporter.h"
#include "FileDescriptor.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <mutex>
#include <spdlog/sinks/base_sink.h>
#include <string>
#include <string_view>

namespace cvlcoreplatform {

/// Appends lines to a file and begins a new one when it is full. Any number of threads may use it.
///
/// A line is in the file as a whole or not at all: what a failed write left behind is cut off
/// again. Nothing that was written before is ever touched; a full file is renamed, and only the
/// oldest of `maxFiles` is replaced. When renaming fails, lines go on into the same file. Files
/// that are no regular files (pipes, devices) are only written to.
class RotatingFileSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    /// Throws `std::system_error` when the file cannot be opened.
    RotatingFileSink(std::string path, TLog::LogFileLimits limits);

private:
    /// The message is the line; no formatter has a say. Throws `std::system_error` when the line
    /// could not be written, and is in the file's state before the line then.
    void sink_it_(const spdlog::details::log_msg& msg) override;

    /// Lines are written at once.
    void flush_() override {}

    void Append(std::string_view line);
    void CutBack(std::size_t written) noexcept;
    void RotateIfFull(std::size_t lineBytes);
    void Rotate();
    bool IsStillAtItsPath() const noexcept;
    void MoveAway() const;
    void Adopt(FileDescriptor file);
    std::string PathOfFullFile(std::size_t number) const;

    const std::string m_path;
    const TLog::LogFileLimits m_limits;
    ErrorReporter m_rotationReporter;
    ErrorReporter::Clock::time_point m_nextRotation{};
    FileDescriptor m_file;
    // Figures of the current file. The size may lag behind when other processes append as well.
    uint64 m_size = 0;
    bool m_isRegular = false;
    // The file does not end with a line end, and what comes next must not become part of it.
    bool m_endsInsideLine = false;
};

}  // namespace cvlcoreplatform
