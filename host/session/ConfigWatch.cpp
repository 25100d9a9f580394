#include "ConfigWatch.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <system_error>
#include <utility>

namespace tarn {
namespace {

constexpr std::chrono::milliseconds interval{500};
constexpr std::size_t largestFile = std::size_t{1} << 20;

/// By what a file that has changed differs. None if there is no ordinary file.
struct Fingerprint {
    dev_t device;
    ino_t node;
    off_t bytes;
    time_t seconds;
    long nanoseconds;

    static std::optional<Fingerprint> Of(const std::string& path) {
        struct stat found {};

        if (stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) {
            return std::nullopt;
        }
        return Fingerprint{
            found.st_dev, found.st_ino, found.st_size, found.st_mtim.tv_sec, found.st_mtim.tv_nsec};
    }

    bool operator==(const Fingerprint&) const = default;

    /// It may have been written to again with the same time of change.
    bool IsYoung() const { return std::time(nullptr) - seconds <= 2; }
};

/// Signals are for the program's own threads.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&all, fault);
        }
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }

    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_before{};
};

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}

    ~Descriptor() {
        if (m_number >= 0) {
            close(m_number);
        }
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return m_number; }

private:
    int m_number;
};

}  // namespace

FileText ReadConfigFile(const std::string& path) {
    // A named pipe at the path must not hold the program up.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));

    struct stat found {};

    if (file.Get() < 0 || fstat(file.Get(), &found) != 0) {
        return {{}, std::strerror(errno)};
    }
    if (!S_ISREG(found.st_mode)) {
        return {{}, "It is not a file."};
    }
    std::string text;
    char room[4096];
    while (true) {
        const ssize_t count = read(file.Get(), room, sizeof room);
        if (count == 0) {
            return {std::move(text), {}};
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return {{}, std::strerror(errno)};
        }
        text.append(room, static_cast<std::size_t>(count));
        if (text.size() > largestFile) {
            return {{}, "It has more than a MiB."};
        }
    }
}

ConfigWatch::ConfigWatch(std::string path,
                         std::string textNow,
                         std::function<void(const std::string& text)> onChange) {
    m_shared->path = std::move(path);
    m_shared->text = std::move(textNow);
    m_shared->onChange = std::move(onChange);
    const BlockedSignals blocked;
    m_shared->thread = std::thread([shared = m_shared.get()] { Run(*shared); });
}

ConfigWatch::~ConfigWatch() {
    if (getpid() != m_process) {
        // Neither the lock nor the thread can be relied on.
        static_cast<void>(m_shared.release());
        return;
    }
    {
        const std::lock_guard guard(m_shared->lock);
        m_shared->isStopped = true;
    }
    m_shared->stopped.notify_one();
    m_shared->thread.join();
}

void ConfigWatch::Run(Shared& shared) {
    pthread_setname_np(pthread_self(), "tarn-config");
    std::optional<Fingerprint> seen;
    std::unique_lock guard(shared.lock);
    while (!shared.stopped.wait_for(guard, interval, [&] { return shared.isStopped; })) {
        guard.unlock();
        const std::optional<Fingerprint> now = Fingerprint::Of(shared.path);
        if (now && now != seen) {
            seen = now->IsYoung() ? std::nullopt : now;
            if (FileText read = ReadConfigFile(shared.path);
                read.error.empty() && read.text != shared.text) {
                shared.text = std::move(read.text);
                shared.onChange(shared.text);
            }
        }
        guard.lock();
    }
}

}  // namespace tarn
