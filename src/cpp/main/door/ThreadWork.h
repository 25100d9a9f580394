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
    [[gnu::tls_model("initial-exec")]] static constinit thread_local ThreadWork t_work;

    Frame* m_top = nullptr;
};

}  // namespace tarn
