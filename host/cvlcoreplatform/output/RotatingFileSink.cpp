#include "RotatingFileSink.h"

#include "FileRequests.h"
#include "FullFiles.h"
#include "LogCounters.h"
#include "RotationLock.h"
#include "UnreportedLosses.h"

#include "cvlsys/TSystem.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace cvlcoreplatform {

constinit FileRequests fileRequests;

namespace {

// What failed is not tried again with every line.
constexpr std::chrono::seconds attemptPause{1};

// How often it is made sure that the file is still at its path.
constexpr std::chrono::seconds lookPause{1};

std::system_error LastError(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

/// Of a text without a line end at its end.
uint64 CountLines(std::string_view text) noexcept {
    uint64 lines = 1;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos;
         end = text.find('\n', end + 1)) {
        ++lines;
    }
    return lines;
}

/// The time of the last tick, some milliseconds ago, which takes less time to read.
ErrorReporter::Clock::time_point TimeOfLastTick() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return ErrorReporter::Clock::time_point(std::chrono::seconds(time.tv_sec) +
                                            std::chrono::nanoseconds(time.tv_nsec));
}

std::string PathOfDescriptor(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

std::string AbsolutePath(const std::string& path) {
    return path.empty() ? path : std::filesystem::absolute(path).string();
}

bool IsPipe(const std::string& path) noexcept {
    struct stat status {};

    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

RotatingFileSink::RotatingFileSink(const std::string& path,
                                   TLog::LogFileLimits limits,
                                   std::shared_ptr<UnreportedLosses> losses)
    : m_path(AbsolutePath(path)),
      m_limits(limits),
      m_losses(std::move(losses)),
      m_owner(TSystem::ProcessID()),
      m_rotationsSeen(fileRequests.rotations.load(std::memory_order_acquire)),
      m_reopeningsSeen(fileRequests.reopenings.load(std::memory_order_acquire)) {
    if (m_limits.maxBytes != 0 && m_limits.maxFiles == 0) {
        throw std::invalid_argument("a log file of limited size needs at least one full file");
    }
    FileDescriptor file = Open(m_path, O_CREAT);
    const int error = errno;
    if (file.IsOpen()) {
        Adopt(std::move(file));
    } else if (error == ENXIO && IsPipe(m_path)) {
        m_nextAttempt = ErrorReporter::Clock::now() + attemptPause;
    } else {
        throw std::system_error(error, std::generic_category(), "cannot open log file " + m_path);
    }
}

RotatingFileSink::~RotatingFileSink() {
    DisownForeignFile();
}

bool RotatingFileSink::Rotate() {
    const std::unique_lock guard(m_lock);
    m_isToRotate = true;
    CarryOutRequests();
    return !m_isToRotate && m_kind == OutputKind::File;
}

bool RotatingFileSink::Reopen() {
    const std::unique_lock guard(m_lock);
    m_isToReopen = true;
    CarryOutRequests();
    return !m_isToReopen;
}

struct stat RotatingFileSink::Status() const noexcept {
    struct stat status {};

    const std::shared_lock guard(m_lock);
    if (fstat(m_file.Get(), &status) != 0) {
        status = {};
    }
    return status;
}

// A pipe that has no reader, or is full, is never waited for in the kernel. The file is never one
// of the three standard descriptors: in a process that has closed its standard error stream,
// whatever is written there would end up in the log.
FileDescriptor RotatingFileSink::Open(const std::string& path, int furtherFlags) const noexcept {
    const int link = m_limits.followSymlinks ? 0 : O_NOFOLLOW;
    FileDescriptor file(
        open(path.c_str(),
             O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | link | furtherFlags,
             static_cast<mode_t>(m_limits.mode)));
    if (file.IsOpen() && file.Get() <= STDERR_FILENO) {
        return FileDescriptor(fcntl(file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return file;
}

int RotatingFileSink::StatusAtPath(struct stat& status) const noexcept {
    return m_limits.followSymlinks ? stat(m_path.c_str(), &status) : lstat(m_path.c_str(), &status);
}

void RotatingFileSink::Adopt(FileDescriptor file) {
    struct stat status {};

    struct stat atRealPath {};

    const bool isKnown = fstat(file.Get(), &status) == 0;
    const bool isRegular = isKnown && S_ISREG(status.st_mode);
    m_file = std::move(file);
    m_device = status.st_dev;
    m_inode = status.st_ino;
    m_kind = isRegular ? OutputKind::File : OutputKind::Stream;
    m_size = isRegular ? static_cast<uint64>(status.st_size) : 0;
    m_linesSinceLook = 0;
    m_isParents = false;
    m_timeout = LineTimeout();
    std::error_code none;
    m_realPath = std::filesystem::canonical(m_path, none).string();
    if (lstat(m_realPath.c_str(), &atRealPath) != 0 || !IsOurs(atRealPath)) {
        m_realPath = m_path;  // it has been moved already
    }
    m_endsInsideLine = isRegular && EndsInsideLine();
}

// Closed if this process may write the file but not read it.
FileDescriptor RotatingFileSink::OpenToRead() const noexcept {
    FileDescriptor file(open(m_realPath.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));

    struct stat status {};

    return fstat(file.Get(), &status) == 0 && IsOurs(status) ? std::move(file) : FileDescriptor();
}

// A file that cannot be read is taken to be whole. While another process is writing, the end of the
// file may be seen inside its line; that is so for a moment only.
bool RotatingFileSink::EndsInsideLine() const noexcept {
    constexpr int attempts = 20;
    constexpr std::chrono::milliseconds moment{1};
    const FileDescriptor file = OpenToRead();
    for (int left = attempts; left != 0; --left) {
        char last = '\n';
        const off_t size = lseek(file.Get(), 0, SEEK_END);
        if (size <= 0 || pread(file.Get(), &last, 1, size - 1) != 1 || last == '\n') {
            return false;
        }
        std::this_thread::sleep_for(moment);
    }
    return true;
}

void RotatingFileSink::log(const spdlog::details::log_msg& msg) {
    const std::string_view line(msg.payload.data(), msg.payload.size());
    const Clock::time_point now = TimeOfLastTick();
    std::size_t written = 0;
    {
        const std::shared_lock guard(m_lock);
        if (MayAppend(line.size() + 1, now)) {
            written = AppendBesideOthers(line);
            if (written == line.size() + 1) {
                return;
            }
        }
    }
    const std::unique_lock guard(m_lock);
    if (written != 0) {
        RepairShortWrite(line, written);
    }
    WriteAlone(line, now);
}

// Whether there is nothing to do but to write. Room in a file of limited size is then set aside.
bool RotatingFileSink::MayAppend(std::size_t bytes, Clock::time_point now) noexcept {
    if (m_kind != OutputKind::File || m_endsInsideLine ||
        m_isCutShort.load(std::memory_order_relaxed) || now >= m_nextLook ||
        m_owner != TSystem::ProcessID() || m_isToRotate || m_isToReopen ||
        m_rotationsSeen != fileRequests.rotations.load(std::memory_order_acquire) ||
        m_reopeningsSeen != fileRequests.reopenings.load(std::memory_order_acquire) ||
        !HasItsFile()) {
        return false;
    }
    if (m_limits.maxBytes == 0) {
        return true;
    }
    const uint64 before = m_size.fetch_add(bytes, std::memory_order_relaxed);
    if (before == 0 || before + bytes <= m_limits.maxBytes) {
        return true;
    }
    m_size.fetch_sub(bytes, std::memory_order_relaxed);
    return false;
}

// How much of the line and its end was written. The rest cannot follow: another thread's line may
// be there by now.
std::size_t RotatingFileSink::AppendBesideOthers(std::string_view line) noexcept {
    const std::size_t written = WriteLineAtOnce(m_file.Get(), line);
    if (written == line.size() + 1) {
        m_linesSinceLook.fetch_add(CountLines(line), std::memory_order_relaxed);
        return written;
    }
    if (written != 0) {
        m_isCutShort.store(true, std::memory_order_relaxed);
    }
    if (m_limits.maxBytes != 0) {
        m_size.fetch_sub(line.size() + 1, std::memory_order_relaxed);
    }
    return written;
}

// What was written is taken back, for the line to be written once more. If it has to stay, so do
// the whole lines in it, and what comes next begins on a new line. A thread that was about to
// append when the write was cut short has done so since, and its first line is broken then, too.
void RotatingFileSink::RepairShortWrite(std::string_view line, std::size_t written) {
    m_isCutShort.store(false, std::memory_order_relaxed);
    const std::string_view part = line.substr(0, written);
    switch (TakeBack(part)) {
        case Taken::Back:
            return;
        case Taken::NotSinceOthersFollow:
            CountLosses(1);
            m_endsInsideLine = EndsInsideLine();
            break;
        case Taken::Not:
            m_endsInsideLine = part.back() != '\n';
            break;
    }
    m_size.fetch_add(written, std::memory_order_relaxed);
    if (line.find('\n') != std::string_view::npos) {
        throw PartlyWritten(ENOSPC, written);
    }
}

// A line of another thread that equals the part and is in its place may go as well.
RotatingFileSink::Taken RotatingFileSink::TakeBack(std::string_view part) noexcept {
    DisownForeignFile();
    const FileDescriptor file = OpenToRead();
    const auto length = static_cast<off_t>(part.size());
    const off_t size = lseek(file.Get(), 0, SEEK_END);
    const std::unique_ptr<char[]> end(new (std::nothrow) char[part.size()]);
    if (!m_file.IsOpen() || end == nullptr || size < length) {
        return Taken::Not;
    }
    const RotationLock lock(m_file);
    if (pread(file.Get(), end.get(), part.size(), size - length) != length) {
        return Taken::Not;
    }
    if (std::string_view(end.get(), part.size()) != part) {
        return Taken::NotSinceOthersFollow;
    }
    return !m_isParents && !lock.IsRefused() && ftruncate(m_file.Get(), size - length) == 0
               ? Taken::Back
               : Taken::Not;
}

void RotatingFileSink::WriteAlone(std::string_view line, Clock::time_point now) {
    LookAfterFile(now);
    RotateIfFull(line.size() + 1);
    const std::size_t lead = m_endsInsideLine ? 1 : 0;
    const LineResult result = Append(line);
    if (result.error == 0) {
        m_linesSinceLook.fetch_add(CountLines(line), std::memory_order_relaxed);
    } else if (result.written > lead) {
        throw PartlyWritten(result.error, result.written - lead);
    } else {
        throw std::system_error(result.error, std::generic_category());
    }
}

void RotatingFileSink::flush() {
    const std::unique_lock guard(m_lock);
    TakeRequests();
    CarryOutRequests();
}

LineResult RotatingFileSink::Append(std::string_view line) noexcept {
    if (!m_file.IsOpen()) {
        return {0, ENXIO, m_endsInsideLine};
    }
    LineResult result = WriteLine(m_file.Get(), m_kind, line, m_endsInsideLine, m_timeout.Get());
    m_timeout.See(result);
    if (result.error != 0 && CutBack(result.written)) {
        result.written = 0;
        return result;
    }
    m_size += result.written;
    m_endsInsideLine = result.endsInsideLine;
    return result;
}

// Takes back the part of a line that was written. The descriptor's position is after it, even when
// others append to the file; what somebody else wrote after it stays, and a line end parts the two.
// The lock keeps two processes from cutting at once.
bool RotatingFileSink::CutBack(std::size_t written) noexcept {
    if (written == 0) {
        return true;
    }
    if (m_kind != OutputKind::File || m_isParents) {
        return false;
    }

    struct stat status {};

    const RotationLock lock(m_file);
    const off_t end = lseek(m_file.Get(), 0, SEEK_CUR);
    return !lock.IsRefused() && end >= 0 && fstat(m_file.Get(), &status) == 0 &&
           status.st_size == end && ftruncate(m_file.Get(), end - static_cast<off_t>(written)) == 0;
}

// Before every line: without a reason to do something it costs a look at the descriptor and a few
// comparisons.
void RotatingFileSink::LookAfterFile(Clock::time_point now) {
    DisownForeignFile();
    if (m_owner != TSystem::ProcessID()) {
        PartFromParent();
    }
    TakeRequests();
    if (m_isToRotate || m_isToReopen) {
        if (ErrorReporter::Clock::now() >= m_nextAttempt) {
            CarryOutRequests();
        }
    }
    if (m_file.IsOpen() ? now >= m_nextLook : ErrorReporter::Clock::now() >= m_nextAttempt) {
        LookForFile(now);
    }
}

// A host that closes descriptors it has not opened, as one does that becomes a daemon, may have
// given ours to another file since.
void RotatingFileSink::DisownForeignFile() noexcept {
    if (m_file.IsOpen() && !HasItsFile()) {
        m_file.Release();
        m_nextAttempt = {};
    }
}

// A forked child shares the position in the file and its locks with its parent, and each would take
// the other's line for its own when it cuts a part off. The path may lead elsewhere meanwhile, so
// it is the descriptor that is opened once more, if that is possible.
void RotatingFileSink::PartFromParent() {
    m_owner = TSystem::ProcessID();
    m_nextLook = Clock::time_point::min();
    if (m_kind != OutputKind::File) {
        return;
    }
    m_isParents = true;
    for (const std::string& path : {PathOfDescriptor(m_file.Get()), m_realPath}) {
        FileDescriptor file = Open(path, 0);

        struct stat status {};

        if (file.IsOpen() && fstat(file.Get(), &status) == 0 && IsOurs(status)) {
            m_file = std::move(file);
            m_isParents = false;
            return;
        }
    }
}

void RotatingFileSink::TakeRequests() noexcept {
    const uint32 rotations = fileRequests.rotations.load(std::memory_order_acquire);
    const uint32 reopenings = fileRequests.reopenings.load(std::memory_order_acquire);
    m_isToRotate = m_isToRotate || rotations != m_rotationsSeen;
    m_isToReopen = m_isToReopen || reopenings != m_reopeningsSeen;
    m_rotationsSeen = rotations;
    m_reopeningsSeen = reopenings;
}

void RotatingFileSink::CarryOutRequests() {
    DisownForeignFile();
    if (m_isToReopen && Try(&RotatingFileSink::OpenPath)) {
        m_isToReopen = false;
        Count(logCounters.reopenings);
    }
    if (m_isToRotate) {
        m_isToRotate = m_kind == OutputKind::File && !IsEmptyAtItsPath() &&
                       !Try(&RotatingFileSink::BeginNewFile);
    }
}

void RotatingFileSink::LookForFile(Clock::time_point now) {
    m_nextLook = now + lookPause;

    struct stat ours {};

    struct stat atPath {};

    if (m_file.IsOpen() && fstat(m_file.Get(), &ours) != 0) {
        m_file.Release();
    }
    const bool isThere = StatusAtPath(atPath) == 0;
    if (m_file.IsOpen() && (isThere ? IsOurs(atPath) : errno != ENOENT)) {
        m_linesSinceLook = 0;
        m_size = m_kind == OutputKind::File ? static_cast<uint64>(ours.st_size) : 0;
        return;
    }
    const uint64 lines = m_linesSinceLook;
    const bool isRemoved = m_file.IsOpen() && m_kind == OutputKind::File && ours.st_nlink == 0;
    if (Try(&RotatingFileSink::OpenPath)) {
        Count(logCounters.reopenings);
        if (isRemoved && lines != 0) {
            CountLinesOfRemovedFile(lines);
        }
    }
}

void RotatingFileSink::CountLosses(uint64 lines) noexcept {
    Count(logCounters.writeErrors, lines);
    if (m_losses != nullptr) {
        m_losses->Add(lines);
    }
}

// At least these are gone. Who removed the file knew of the lines from before the last look.
void RotatingFileSink::CountLinesOfRemovedFile(uint64 lines) noexcept {
    CountLosses(lines);
    m_removalReporter.Report(ErrorReporter::Clock::now(),
                             "lines are lost with a removed log file",
                             m_path,
                             logCounters.writeErrors.load(std::memory_order_relaxed));
}

void RotatingFileSink::RotateIfFull(std::size_t lineBytes) {
    if (m_limits.maxBytes != 0 && m_kind == OutputKind::File && m_size != 0 &&
        m_size + lineBytes > m_limits.maxBytes && ErrorReporter::Clock::now() >= m_nextAttempt) {
        Try(&RotatingFileSink::BeginNewFile);
    }
}

// When it fails, the file stays in use as it is, under whatever name it has now.
bool RotatingFileSink::Try(Action action) {
    try {
        (this->*action)();
        return true;
    } catch (const std::exception& error) {
        const auto now = ErrorReporter::Clock::now();
        m_nextAttempt = now + attemptPause;
        Count(logCounters.rotationErrors);
        m_rotationReporter.Report(now,
                                  "cannot begin a new log file",
                                  error.what(),
                                  logCounters.rotationErrors.load(std::memory_order_relaxed));
        return false;
    }
}

void RotatingFileSink::BeginNewFile() {
    {
        const RotationLock lock(m_file);
        if (lock.IsRefused() || m_isParents) {
            throw std::system_error(
                EAGAIN, std::generic_category(), m_realPath + ": locked by another process");
        }
        // Otherwise somebody else has moved the file away already, for instance a forked child.
        if (IsStillAtItsPath()) {
            MoveAway(m_realPath, m_limits.maxFiles);
        }
    }
    OpenPath();
    Count(logCounters.rotations);
}

void RotatingFileSink::OpenPath() {
    FileDescriptor file = Open(m_path, O_CREAT);
    if (!file.IsOpen()) {
        throw LastError(m_path);
    }
    Adopt(std::move(file));
}

bool RotatingFileSink::HasItsFile() const noexcept {
    struct stat status {};

    return fstat(m_file.Get(), &status) == 0 && IsOurs(status);
}

bool RotatingFileSink::IsOurs(const struct stat& status) const noexcept {
    return status.st_dev == m_device && status.st_ino == m_inode;
}

// Both the path, which may be a link that leads elsewhere by now, and the place without links.
bool RotatingFileSink::IsStillAtItsPath() const noexcept {
    struct stat atPath {};

    struct stat atRealPath {};

    return StatusAtPath(atPath) == 0 && IsOurs(atPath) &&
           lstat(m_realPath.c_str(), &atRealPath) == 0 && IsOurs(atRealPath);
}

bool RotatingFileSink::IsEmptyAtItsPath() const noexcept {
    struct stat atPath {};

    return StatusAtPath(atPath) == 0 && IsOurs(atPath) && atPath.st_size == 0;
}

}  // namespace cvlcoreplatform
