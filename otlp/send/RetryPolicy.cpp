#include "send/RetryPolicy.h"

#include <algorithm>
#include <curl/curl.h>

namespace tarn::otlp {

bool IsRetryable(int status) {
    return status == 429 || status == 502 || status == 503 || status == 504;
}

std::optional<std::chrono::milliseconds> ParseRetryAfter(
    const std::string& text, std::chrono::system_clock::time_point now) {
    constexpr std::size_t mostDigits = 9;
    const bool isNumber = !text.empty() && text.size() <= mostDigits &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    if (isNumber) {
        return std::chrono::seconds(std::stol(text));
    }
    const std::time_t time = curl_getdate(text.c_str(), nullptr);
    if (time == -1) {
        return std::nullopt;
    }
    return std::chrono::ceil<std::chrono::milliseconds>(
        std::chrono::system_clock::from_time_t(time) - now);
}

RetryPolicy::RetryPolicy(const Options& options, std::uint32_t seed)
    : m_first(std::max(options.firstBackOff, std::chrono::milliseconds(1))),
      m_longest(std::max(options.longestBackOff, m_first)),
      m_next(m_first),
      m_random(seed) {}

std::chrono::milliseconds RetryPolicy::NextWait() {
    const auto whole = m_next.count();
    std::uniform_int_distribution<std::chrono::milliseconds::rep> part((whole + 1) / 2, whole);
    m_next = m_next > m_longest / 2 ? m_longest : 2 * m_next;
    return std::chrono::milliseconds(part(m_random));
}

}  // namespace tarn::otlp
