#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace tarnview {

/// A bar on a terminal that says how much of the input has been read, at which rate, and how long
/// the rest will take. It appears when reading has taken a second and is redrawn ten times a second
/// at the most. One that is not enabled does nothing. Used by one thread.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// `total` bytes are to be read; 0 if nobody knows.
    Progress(std::ostream& out, bool isEnabled, std::uint64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Everything is to be read once more: what is read then counts on from what was read before.
    void ExpectAnotherPass() { m_total += m_size; }

    void Update(std::uint64_t bytesRead) { Update(bytesRead, Clock::now()); }

    void Update(std::uint64_t bytesRead, Clock::time_point now);

    /// Takes the bar away, so that something else can be written. The next update draws it again.
    void Clear();

private:
    std::ostream& m_out;
    bool m_isEnabled;
    std::uint64_t m_size;
    std::uint64_t m_total;  // of all passes
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_nextDraw = m_start + std::chrono::seconds(1);
    bool m_isShown = false;
};

}  // namespace tarnview
