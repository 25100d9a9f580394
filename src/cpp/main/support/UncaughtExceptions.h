#pragma once

namespace tarn {

/// How many exceptions are on their way on the calling thread: `std::uncaught_exceptions`, without
/// a call.
class UncaughtExceptions {
public:
    static unsigned OfThisThread() noexcept {
        const State* state = t_state;
        return (state != nullptr ? state : Find())->uncaught;
    }

private:
    /// What the C++ runtime has of each thread, as its binary interface lays it out.
    struct State {
        void* caught;
        unsigned uncaught;
    };

    static const State* Find() noexcept;

    [[gnu::tls_model("initial-exec")]] static constinit thread_local const State* t_state;
};

}  // namespace tarn
