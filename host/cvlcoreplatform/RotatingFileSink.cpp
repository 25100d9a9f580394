#include "RotatingFileSink.h"

#include "FileRequests.h"
#include "LogCounters.h"
#include "Losses.h"

#include "cvlsys/TSystem.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <spdlog/sinks/base_sink-inl.h>
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

// Logs name users and hosts: readable for the group, for nobody else.
constexpr mode_t fileMode = 0640;

// What failed is not tried again with every line.
constexpr std::chrono::seconds attemptPause{1};

// How often it is made sure that the file is still at its path.
constexpr std::chrono::seconds lookPause{1};

std::system_error LastError(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

// Never one of the three standard descriptors: in a process that has closed its standard error
// stream, whatever is written there would end up in the log file.
FileDescriptor OpenForAppending(const std::string& path, int furtherFlags) noexcept {
    FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | furtherFlags, fileMode));
    if (file.IsOpen() && file.Get() <= STDERR_FILENO) {
        return FileDescriptor(fcntl(file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return file;
}

// Of a file that this process may write but not read nothing is known; it is taken to be whole.
// While another process is writing, the end of the file may be seen inside its line; that is so for
// a moment only.
bool EndsInsideLine(const std::string& path) noexcept {
    constexpr int attempts = 20;
    constexpr std::chrono::milliseconds moment{1};
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
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

/// Of a text without a line end at its end.
uint64 CountLines(std::string_view text) noexcept {
    uint64 lines = 1;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos;
         end = text.find('\n', end + 1)) {
        ++lines;
    }
    return lines;
}

std::string PathOfDescriptor(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

// Keeps other processes from rotating the same file at the same time, as far as the file system
// knows locks. The lock belongs to the process, so that a forked child and its parent part ways,
// and ends at the latest when the file is closed.
class RotationLock {
public:
    explicit RotationLock(const FileDescriptor& file) noexcept : m_descriptor(file.Get()) {
        SetLock(F_WRLCK);
    }

    ~RotationLock() { SetLock(F_UNLCK); }

    RotationLock(const RotationLock&) = delete;
    RotationLock& operator=(const RotationLock&) = delete;

private:
    void SetLock(short type) const noexcept {
        struct flock lock {};

        lock.l_type = type;
        lock.l_whence = SEEK_SET;
        while (fcntl(m_descriptor, F_SETLKW, &lock) != 0 && errno == EINTR) {
        }
    }

    int m_descriptor;
};

}  // namespace

RotatingFileSink::RotatingFileSink(std::string path,
                                   TLog::LogFileLimits limits,
                                   std::shared_ptr<Losses> losses)
    : m_path(std::move(path)),
      m_limits(limits),
      m_losses(std::move(losses)),
      m_owner(TSystem::ProcessID()),
      m_rotationsSeen(fileRequests.rotations.load(std::memory_order_acquire)),
      m_reopeningsSeen(fileRequests.reopenings.load(std::memory_order_acquire)) {
    if (m_limits.maxBytes != 0 && m_limits.maxFiles == 0) {
        throw std::invalid_argument("a log file of limited size needs at least one full file");
    }
    FileDescriptor file = OpenForAppending(m_path, O_CREAT);
    if (!file.IsOpen()) {
        throw LastError("cannot open log file " + m_path);
    }
    Adopt(std::move(file));
}

bool RotatingFileSink::Rotate() {
    const std::lock_guard lock(mutex_);
    m_isToRotate = true;
    CarryOutRequests();
    return !m_isToRotate && m_kind == OutputKind::File;
}

bool RotatingFileSink::Reopen() {
    const std::lock_guard lock(mutex_);
    m_isToReopen = true;
    CarryOutRequests();
    return !m_isToReopen;
}

void RotatingFileSink::Adopt(FileDescriptor file) {
    struct stat status {};

    const bool isKnown = fstat(file.Get(), &status) == 0;
    const bool isRegular = isKnown && S_ISREG(status.st_mode);
    m_file = std::move(file);
    m_device = status.st_dev;
    m_inode = status.st_ino;
    m_kind = isRegular ? OutputKind::File : OutputKind::Stream;
    m_size = isRegular ? static_cast<uint64>(status.st_size) : 0;
    m_linesSinceLook = 0;
    m_endsInsideLine = isRegular && EndsInsideLine(m_path);
}

void RotatingFileSink::sink_it_(const spdlog::details::log_msg& msg) {
    const std::string_view line(msg.payload.data(), msg.payload.size());
    LookAfterFile(msg.time);
    RotateIfFull(line.size() + 1);
    int error = Append(line);
    if (error == EBADF && m_file.IsOpen()) {
        // The host has closed a descriptor that is not its own.
        LookForFile(msg.time);
        error = Append(line);
    }
    if (error != 0) {
        throw std::system_error(error, std::generic_category());
    }
    m_linesSinceLook += CountLines(line);
}

void RotatingFileSink::flush_() {
    TakeRequests();
    CarryOutRequests();
}

int RotatingFileSink::Append(std::string_view line) noexcept {
    constexpr std::chrono::milliseconds patience{1000};
    const LineResult result = WriteLine(m_file.Get(), m_kind, line, m_endsInsideLine, patience);
    if (result.error == 0) {
        m_size += result.written;
        m_endsInsideLine = false;
    } else {
        CutBack(result.written);
    }
    return result.error;
}

// Takes back the part of a line that was written. The descriptor stands behind it, whoever else
// appends to the file; what somebody else wrote after it stays, and a line end parts the two.
void RotatingFileSink::CutBack(std::size_t written) noexcept {
    if (written == 0) {
        return;
    }

    struct stat status {};

    const off_t end = lseek(m_file.Get(), 0, SEEK_CUR);
    const bool isLast = m_kind == OutputKind::File && end >= 0 &&
                        fstat(m_file.Get(), &status) == 0 && status.st_size == end;
    if (!isLast || ftruncate(m_file.Get(), end - static_cast<off_t>(written)) != 0) {
        m_size += written;
        m_endsInsideLine = true;
    }
}

// Before every line: without a reason to do something it costs a few comparisons.
void RotatingFileSink::LookAfterFile(Clock::time_point now) {
    if (m_owner != TSystem::ProcessID()) {
        PartFromParent();
    }
    TakeRequests();
    if (m_isToRotate || m_isToReopen) {
        if (ErrorReporter::Clock::now() >= m_nextAttempt) {
            CarryOutRequests();
        }
    }
    if (now < m_lastLook || now - m_lastLook >= lookPause) {
        LookForFile(now);
    }
}

// A forked child shares the position in the file with its parent, and each would take the other's
// line for its own when it cuts a part off. The path may lead elsewhere meanwhile, so it is the
// descriptor that is opened once more.
void RotatingFileSink::PartFromParent() {
    m_owner = TSystem::ProcessID();
    m_lastLook = {};
    if (m_kind != OutputKind::File) {
        return;
    }
    FileDescriptor file = OpenForAppending(PathOfDescriptor(m_file.Get()), 0);

    struct stat status {};

    if (file.IsOpen() && fstat(file.Get(), &status) == 0 && IsOurs(status)) {
        m_file = std::move(file);
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
    m_lastLook = now;

    struct stat ours {};

    struct stat atPath {};

    // A host that closes descriptors it has not opened, as one does that becomes a daemon, may have
    // given ours to another file since.
    if (fstat(m_file.Get(), &ours) != 0 || !IsOurs(ours)) {
        m_file.Release();
    }
    const bool isThere = stat(m_path.c_str(), &atPath) == 0;
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

// At least these are gone; whoever removed the file knows of the others.
void RotatingFileSink::CountLinesOfRemovedFile(uint64 lines) noexcept {
    Count(logCounters.writeErrors, lines);
    if (m_losses != nullptr) {
        m_losses->Add(lines);
    }
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
        // Otherwise somebody else has moved the file away already, for instance a forked child.
        if (IsStillAtItsPath()) {
            MoveAway();
        }
    }
    OpenPath();
    Count(logCounters.rotations);
}

// Does not wait for the reader of a pipe that has taken the file's place.
void RotatingFileSink::OpenPath() {
    FileDescriptor file = OpenForAppending(m_path, O_CREAT | O_NONBLOCK);
    if (!file.IsOpen()) {
        throw LastError(m_path);
    }
    const int flags = fcntl(file.Get(), F_GETFL);
    fcntl(file.Get(), F_SETFL, flags & ~O_NONBLOCK);
    Adopt(std::move(file));
}

bool RotatingFileSink::IsOurs(const struct stat& status) const noexcept {
    return status.st_dev == m_device && status.st_ino == m_inode;
}

bool RotatingFileSink::IsStillAtItsPath() const noexcept {
    struct stat atPath {};

    return stat(m_path.c_str(), &atPath) == 0 && IsOurs(atPath);
}

bool RotatingFileSink::IsEmptyAtItsPath() const noexcept {
    struct stat atPath {};

    return stat(m_path.c_str(), &atPath) == 0 && IsOurs(atPath) && atPath.st_size == 0;
}

// Full files move up into the first gap, so that only the oldest is ever replaced, and that only
// when there is no gap.
void RotatingFileSink::MoveAway() const {
    if (m_limits.maxFiles == 0) {
        throw std::logic_error(m_path + ": no full file is to be kept");
    }
    std::size_t last = 1;
    while (last < m_limits.maxFiles && access(PathOfFullFile(last).c_str(), F_OK) == 0) {
        ++last;
    }
    for (std::size_t number = last; number != 0; --number) {
        const std::string from = PathOfFullFile(number - 1);
        // Somebody else may have moved the current file away just now.
        if (rename(from.c_str(), PathOfFullFile(number).c_str()) != 0 &&
            (number != 1 || errno != ENOENT)) {
            throw LastError(from);
        }
    }
}

// The current file has the number 0.
std::string RotatingFileSink::PathOfFullFile(std::size_t number) const {
    if (number == 0) {
        return m_path;
    }
    const std::filesystem::path path(m_path);
    return (path.parent_path() / path.stem()).string() + "." + std::to_string(number) +
           path.extension().string();
}

}  // namespace cvlcoreplatform
