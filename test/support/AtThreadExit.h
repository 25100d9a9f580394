#pragma once

#include <functional>

namespace tarn::test {

/// As a thread-local object it does something while its thread is being torn down. What was made
/// before it is still there then, what was made after it is gone.
struct AtThreadExit {
    AtThreadExit() = default;

    ~AtThreadExit() {
        if (action) {
            action();
        }
    }

    AtThreadExit(const AtThreadExit&) = delete;
    AtThreadExit& operator=(const AtThreadExit&) = delete;

    std::function<void()> action;
};

}  // namespace tarn::test
