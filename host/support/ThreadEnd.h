#pragma once

namespace host {

/// What a thread keeps, and gives back at its end: how code that is called to the very end of a
/// thread, from destructors of other thread-local objects as well, knows that it is too late to
/// keep anything. `Kept` is a type with a static function `AtThreadEnd`, which must not throw. What
/// is kept itself belongs in thread-local variables without destructors, which can be read for as
/// long as the thread runs any code.
template <class Kept>
class ThreadEnd {
public:
    /// To be called before something is kept: `Kept::AtThreadEnd` is called when the calling thread
    /// ends. False if it has been called already, and nothing is to be kept any more. Costs one
    /// load after the first time.
    static bool Watch() { return s_state == State::Watched || Begin(); }

    /// Whether `Kept::AtThreadEnd` is being called on this thread, or was.
    static bool IsOver() noexcept { return s_state == State::Over; }

private:
    enum class State : unsigned char { NotWatched, Watched, Over };

    struct Watcher {
        Watcher() noexcept { s_state = State::Watched; }

        ~Watcher() {
            s_state = State::Over;
            Kept::AtThreadEnd();
        }

        Watcher(const Watcher&) = delete;
        Watcher& operator=(const Watcher&) = delete;
    };

    [[gnu::noinline]] static bool Begin() {
        if (IsOver()) {
            return false;
        }
        thread_local const Watcher watcher;
        static_cast<void>(watcher);
        return true;
    }

    static inline constinit thread_local State s_state = State::NotWatched;
};

}  // namespace host
