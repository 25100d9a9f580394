#pragma once

namespace tarn {

/// What is current on a thread: its open scopes and the activities that were resumed there, the
/// innermost first. Only the thread itself touches its list. Frames are linked in place, and leave
/// in any order.
class ThreadWork {
public:
    struct Frame {
        Frame* below;
        bool isStay;  ///< a `Stay` of an activity, which may end elsewhere; else a `ScopeWork`
    };

    /// The list of the calling thread, which is there to the thread's very end.
    static ThreadWork& OfThisThread() noexcept { return t_work; }

    /// How many exceptions are on their way on this thread: `std::uncaught_exceptions`, without a
    /// call.
    unsigned UncaughtExceptions() noexcept {
        if (m_exceptions == nullptr) {
            m_exceptions = FindExceptions();
        }
        return m_exceptions->uncaught;
    }

    Frame* Top() const noexcept { return m_top; }

    void Push(Frame& frame) noexcept {
        frame.below = m_top;
        m_top = &frame;
    }

    /// The frame is in the list.
    void Remove(const Frame& frame) noexcept {
        Frame** link = &m_top;
        while (*link != &frame) {
            link = &(*link)->below;
        }
        *link = frame.below;
    }

private:
    /// What the C++ runtime has of each thread, as its binary interface lays it out.
    struct Exceptions {
        void* caught;
        unsigned uncaught;
    };

    static const Exceptions* FindExceptions() noexcept;

    [[gnu::tls_model("initial-exec")]] static constinit thread_local ThreadWork t_work;

    Frame* m_top = nullptr;
    const Exceptions* m_exceptions = nullptr;
};

}  // namespace tarn
