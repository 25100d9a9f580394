#pragma once

#include "ThreadEnd.h"

#include <utility>

namespace host {

/// One object of type `T` for each thread, made when it is first asked for. Once the thread is
/// being torn down there is none: callers at that time, from another thread-local's or a static
/// destructor, must do without.
template <class T>
class ThreadObject {
public:
    /// Null during the thread's teardown.
    static T* Get() {
        T* const object = s_object;
        return object != nullptr ? object : Make();
    }

    /// The object if there is one already.
    static T* Peek() noexcept { return s_object; }

private:
    friend class ThreadEnd<ThreadObject>;
    using End = ThreadEnd<ThreadObject>;

    [[gnu::noinline]] static T* Make() {
        if (End::Watch()) {
            s_object = new T;
        }
        return s_object;
    }

    static void AtThreadEnd() noexcept { delete std::exchange(s_object, nullptr); }

    // Needs no destructor and can therefore be read to the very end of the thread.
    static inline constinit thread_local T* s_object = nullptr;
};

}  // namespace host
