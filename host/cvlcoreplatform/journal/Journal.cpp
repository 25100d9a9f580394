#include "Journal.h"

#include "cvlsys/TSystem.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace cvlcoreplatform {

namespace {

constexpr std::size_t fileBytes = journalHeadBytes + journalCapacity;

// What a former process with the same id has left and could not be recovered keeps its name.
constexpr int mostNumbers = 100;

[[noreturn]] void Throw(int error, const std::string& path) {
    throw std::system_error(error, std::generic_category(), "cannot make a journal " + path);
}

// A process that looks for journals may have locked it, for a moment.
void LockForGood(const FileDescriptor& file, const std::string& path) {
    constexpr int attempts = 100;
    constexpr std::chrono::milliseconds pause{1};
    int error = LockJournal(file);
    for (int left = attempts; error == EAGAIN && left != 0; --left) {
        std::this_thread::sleep_for(pause);
        error = LockJournal(file);
    }
    if (error != 0) {
        Throw(error, path);
    }
}

}  // namespace

Journal::Journal(const std::string& log, mode_t mode) {
    const uint32 process = TSystem::ProcessID();
    for (int number = 1; !m_file.IsOpen(); ++number) {
        m_path = PathOfJournal(log, process, number);
        m_file = FileDescriptor(
            open(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        if (!m_file.IsOpen() && (errno != EEXIST || number == mostNumbers)) {
            Throw(errno, m_path);
        }
    }
    if (m_file.Get() <= STDERR_FILENO) {
        m_file = FileDescriptor(fcntl(m_file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    try {
        Map(m_path, mode);
    } catch (...) {
        unlink(m_path.c_str());
        throw;
    }
}

// The version comes last: until then nobody takes the file for a journal.
void Journal::Map(const std::string& path, mode_t mode) {
    if (const int error = posix_fallocate(m_file.Get(), 0, fileBytes); error != 0) {
        Throw(error, path);
    }
    // Whatever the mask of the process says, its owner may read it.
    fchmod(m_file.Get(), (mode & 0777U) | S_IRUSR | S_IWUSR);
    LockForGood(m_file, path);
    void* const memory =
        mmap(nullptr, fileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, m_file.Get(), 0);
    if (memory == MAP_FAILED) {
        Throw(errno, path);
    }
    m_memory = memory;
    JournalHead& head = *new (memory) JournalHead{};
    std::memcpy(head.magic, JournalHead::expectedMagic.data(), sizeof head.magic);
    head.process = TSystem::ProcessID();
    head.version.store(JournalHead::expectedVersion, std::memory_order_release);
}

Journal::~Journal() {
    if (m_memory == nullptr) {
        return;
    }
    if (Lines().empty()) {
        unlink(m_path.c_str());
    }
    munmap(m_memory, fileBytes);
}

bool Journal::Append(std::string_view line) noexcept {
    const uint64 end = Head().end.load(std::memory_order_relaxed);
    if (line.size() >= journalCapacity - end) {
        return false;
    }
    std::memcpy(Text() + end, line.data(), line.size());
    Text()[end + line.size()] = '\n';
    Head().end.store(end + line.size() + 1, std::memory_order_release);
    return true;
}

std::string_view Journal::Lines() const noexcept {
    const uint64 begin = Head().begin.load(std::memory_order_relaxed);
    const uint64 end = Head().end.load(std::memory_order_relaxed);
    return begin < end ? std::string_view(Text() + begin, end - begin) : std::string_view();
}

void Journal::AnnounceLanding(const JournalLanding& landing) noexcept {
    Head().landing = landing;
    Head().lands.store(1, std::memory_order_release);
}

// Where all has landed, `end` goes first: it is not above `begin` then.
void Journal::HasLanded(std::size_t bytes) noexcept {
    JournalHead& head = Head();
    if (bytes == Lines().size()) {
        head.end.store(0, std::memory_order_release);
        head.begin.store(0, std::memory_order_release);
    } else {
        head.begin.fetch_add(bytes, std::memory_order_release);
    }
    head.lands.store(0, std::memory_order_release);
}

void Journal::LeaveToParent() noexcept {
    munmap(m_memory, fileBytes);
    m_memory = nullptr;
    m_file = FileDescriptor();
}

}  // namespace cvlcoreplatform
