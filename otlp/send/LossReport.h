#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tarn::otlp {

/// Gathers what is to be told of losses, and says when: at once, then once a minute at most. Takes
/// no lock.
class LossReport {
public:
    using Time = std::chrono::steady_clock::time_point;

    void Note(const std::string& reason, std::uint64_t spans) {
        m_reason = reason;
        m_spans += spans;
        m_isNew = true;
    }

    /// The sentence to tell now; empty if nothing is to be told. With `isLast` nothing is held
    /// back.
    std::string Take(Time now, bool isLast);

private:
    std::string m_reason;
    std::uint64_t m_spans = 0;  // since the last sentence
    bool m_isNew = false;
    bool m_hasTold = false;
    Time m_lastTime{};
};

}  // namespace tarn::otlp
