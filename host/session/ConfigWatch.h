#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tarn {

/// What is in a small file, or why it cannot be read.
struct FileText {
    std::string text;
    std::string error;  ///< empty if it was read
};

FileText ReadConfigFile(const std::string& path);

/// Looks at a file twice a second, on a thread of its own that takes no signals, and says when its
/// text has changed. A file that is gone, or cannot be read, has not changed: editors take one away
/// for a moment. A forked child has no such thread.
class ConfigWatch {
public:
    /// `onChange` is called on the watch's thread, with the new text. Throws `std::system_error`.
    ConfigWatch(std::string path,
                std::string textNow,
                std::function<void(const std::string& text)> onChange);

    /// Waits for a call of `onChange` that has begun.
    ~ConfigWatch();

    ConfigWatch(const ConfigWatch&) = delete;
    ConfigWatch& operator=(const ConfigWatch&) = delete;

private:
    /// All that the thread uses. A forked child, which has no such thread, leaves it alone.
    struct Shared {
        std::mutex lock;
        std::condition_variable stopped;
        bool isStopped = false;
        std::string path;
        std::string text;
        std::function<void(const std::string& text)> onChange;
        std::thread thread;
    };

    static void Run(Shared& shared);

    const pid_t m_process = getpid();
    std::unique_ptr<Shared> m_shared = std::make_unique<Shared>();
};

}  // namespace tarn
