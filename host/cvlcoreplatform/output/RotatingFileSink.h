#pragma once

#include "ErrorReporter.h"
#include "FileDescriptor.h"
#include "FileSink.h"
#include "LineOutput.h"
#include "UnreportedLosses.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/ReadWriteLock.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>

namespace cvlcoreplatform {

/// A line, or lines that were to be written together, of which a part stays in the file.
class PartlyWritten : public std::system_error {
public:
    PartlyWritten(int error, std::size_t newBytes)
        : std::system_error(error, std::generic_category()),
          bytes(newBytes) {}

    std::size_t bytes;
};

/// Appends lines to a file, and begins a new one when it is full or when that is asked for. Any
/// number of threads may use it.
///
/// A line is in the file as a whole or not at all: what a failed write left behind is cut off
/// again. Nothing that was written before is ever touched; a full file is renamed, and only the
/// oldest of `maxFiles` is replaced. When renaming fails, or another process keeps the file locked,
/// lines go on into the same file. Files that are no regular files (pipes, devices) are only
/// written to, and one that takes nothing is waited for as a standard stream is.
///
/// The path is the one that it was when the sink was made, whatever folder the process works in
/// later. Links in it are followed when the file is opened, and full files lie beside the real one.
///
/// Before each write the sink makes sure that its descriptor still leads to its file: a host may
/// close it, and give its number to a file of its own.
///
/// Once a second the sink makes sure that it still writes to the file that is at its path, and
/// opens that one if not. Lines that have gone into a file that was removed meanwhile are lost, and
/// counted.
///
/// Threads write at the same time: `O_APPEND` puts each line behind the last one. Only who looks
/// after the file, and who repairs a write that was cut short, keeps the others out.
class RotatingFileSink final : public FileSink {
public:
    /// Throws `std::system_error` when the file cannot be opened. A named pipe without a reader is
    /// opened later.
    RotatingFileSink(const std::string& path,
                     TLog::LogFileLimits limits,
                     std::shared_ptr<UnreportedLosses> losses = nullptr);
    ~RotatingFileSink() override;
    RotatingFileSink(const RotatingFileSink&) = delete;
    RotatingFileSink& operator=(const RotatingFileSink&) = delete;

    const std::string& Path() const noexcept override { return m_path; }

    bool Rotate() override;
    bool Reopen() override;

    /// Which file it is at the moment, and how long; all 0 if none is open.
    struct stat Status() const noexcept;

    // NOLINTBEGIN(readability-identifier-naming): named by spdlog

    /// The message is the line; no formatter has a say. Throws `std::system_error` when the line
    /// could not be written, and the file is as it was before then; `PartlyWritten` if it is not.
    void log(const spdlog::details::log_msg& msg) override;

    /// Lines are written at once. Only what has been asked for is still to do.
    void flush() override;

    // NOLINTEND(readability-identifier-naming)

private:
    using Clock = ErrorReporter::Clock;
    using Action = void (RotatingFileSink::*)();

    // What became of the part of a line that was to be taken back.
    enum class Taken { Back, Not, NotSinceOthersFollow };

    // Beside other threads.
    bool MayAppend(std::size_t bytes, Clock::time_point now) noexcept;
    std::size_t AppendBesideOthers(std::string_view line) noexcept;

    // Alone, as all that follows.
    void RepairShortWrite(std::string_view line, std::size_t written);
    void WriteAlone(std::string_view line, Clock::time_point now);
    LineResult Append(std::string_view line) noexcept;
    bool CutBack(std::size_t written) noexcept;
    Taken TakeBack(std::string_view part) noexcept;

    void LookAfterFile(Clock::time_point now);
    void DisownForeignFile() noexcept;
    void PartFromParent();
    void TakeRequests() noexcept;
    void CarryOutRequests();
    void LookForFile(Clock::time_point now);
    void RotateIfFull(std::size_t lineBytes);
    bool Try(Action action);

    void BeginNewFile();
    void OpenPath();
    void CountLinesOfRemovedFile(uint64 lines) noexcept;

    bool HasItsFile() const noexcept;
    bool IsOurs(const struct stat& status) const noexcept;
    bool IsStillAtItsPath() const noexcept;
    bool IsEmptyAtItsPath() const noexcept;
    FileDescriptor Open(const std::string& path, int furtherFlags) const noexcept;
    int StatusAtPath(struct stat& status) const noexcept;
    void Adopt(FileDescriptor file);
    FileDescriptor OpenToRead() const noexcept;
    bool EndsInsideLine() const noexcept;
    void CountLosses(uint64 lines) noexcept;

    const std::string m_path;
    const TLog::LogFileLimits m_limits;
    const std::shared_ptr<UnreportedLosses> m_losses;
    ErrorReporter m_rotationReporter;
    ErrorReporter m_removalReporter;
    Clock::time_point m_nextAttempt{};
    Clock::time_point m_nextLook = Clock::time_point::min();
    uint32 m_owner;

    uint32 m_rotationsSeen;
    uint32 m_reopeningsSeen;
    bool m_isToRotate = false;
    bool m_isToReopen = false;

    FileDescriptor m_file;
    // Without links.
    std::string m_realPath;
    // Position and locks in the file are the parent's as well.
    bool m_isParents = false;
    // Figures of the current file. The size may lag behind when other processes append as well.
    dev_t m_device = 0;
    ino_t m_inode = 0;
    OutputKind m_kind = OutputKind::Stream;
    std::atomic<uint64> m_size{0};
    std::atomic<uint64> m_linesSinceLook{0};
    // The file does not end with a line end, and what comes next must not become part of it.
    bool m_endsInsideLine = false;
    LineTimeout m_timeout;

    // Shared by those who append, for as long as they do.
    mutable cvlsys::ReadWriteLock m_lock;
    // A write beside others was cut short and is not repaired yet: nobody is to append behind it.
    std::atomic<bool> m_isCutShort{false};
};

}  // namespace cvlcoreplatform
