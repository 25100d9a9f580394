#pragma once

#include "CapturingSink.h"
#include "Script.h"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace figures {

/// The second thread of the scripts. It does one piece of work after the other.
class SecondThread {
public:
    SecondThread();
    ~SecondThread();
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

    void Begin(std::function<void()> work);
    void Wait();

private:
    void Loop();

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::function<void()> m_work;
    bool m_isBusy = false;
    bool m_isEnding = false;
    std::thread m_thread;
};

/// Where blocks that are allocated for real come from.
enum class Blocks { FromTMalloc, FromNew };

/// Does what the script says, with real scopes and contexts; the calling thread is thread 0. The
/// options of the script must be set. Returns the sizes of its blocks as they were counted.
std::vector<std::size_t> Run(const Script& script,
                             SecondThread& second,
                             Blocks blocks = Blocks::FromTMalloc);

}  // namespace figures
