#pragma once

#include <memory>
#include <utility>

namespace cvlcoreplatform {

/// One object of type `T` for each thread, made when it is first asked for. Once the thread is
/// being torn down there is none: whoever asks then, from another thread-local's or a static
/// destructor, must do without.
template <class T>
class ThreadObject {
public:
    /// Null during the thread's teardown.
    static T* Get() {
        if (s_object == nullptr && !s_tornDown) {
            Make();
        }
        return s_object;
    }

    /// The object if there is one already.
    static T* Peek() noexcept { return s_object; }

private:
    struct Owner {
        Owner() = default;
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;

        ~Owner() {
            s_tornDown = true;
            delete std::exchange(s_object, nullptr);
        }
    };

    static void Make() {
        auto object = std::make_unique<T>();
        thread_local const Owner owner;
        static_cast<void>(owner);
        s_object = object.release();
    }

    // Both need no destructor and can therefore be read to the very end of the thread.
    static inline constinit thread_local T* s_object = nullptr;
    static inline constinit thread_local bool s_tornDown = false;
};

}  // namespace cvlcoreplatform
