#include "output/Progress.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>

namespace tarnview {

namespace {

constexpr std::size_t barWidth = 30;

std::string Bar(double share) {
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(barWidth));
    return "[" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "]";
}

}  // namespace

Progress::Progress(std::ostream& out, bool isEnabled, std::uint64_t total)
    : m_out(out),
      m_isEnabled(isEnabled),
      m_size(total),
      m_total(total) {}

Progress::~Progress() {
    Clear();
}

void Progress::Update(std::uint64_t bytesRead, Clock::time_point now) {
    if (!m_isEnabled || now < m_nextDraw) {
        return;
    }
    m_nextDraw = now + std::chrono::milliseconds(100);
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const double megabytes = static_cast<double>(bytesRead) / 1e6;
    char figures[96];
    m_out << '\r';
    if (m_total != 0 && bytesRead != 0) {
        const double share =
            std::min(1.0, static_cast<double>(bytesRead) / static_cast<double>(m_total));
        std::snprintf(figures,
                      sizeof(figures),
                      " %3.0f %%  %.0f MB/s  %.0f s left ",
                      share * 100,
                      megabytes / seconds,
                      seconds / share - seconds);
        m_out << Bar(share);
    } else {
        std::snprintf(
            figures, sizeof(figures), "%.0f MB read  %.0f MB/s ", megabytes, megabytes / seconds);
    }
    m_out << figures << "\x1B[K" << std::flush;
    m_isShown = true;
}

void Progress::Clear() {
    if (m_isShown) {
        m_out << "\r\x1B[K" << std::flush;
        m_isShown = false;
    }
}

}  // namespace tarnview
