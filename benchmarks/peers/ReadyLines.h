#pragma once

#include "peers/RandomId.h"
#include "support/TracingUnderTest.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace benchmarks {

/// A line of the library's, of which a peer fills in what differs from scope to scope.
class ReadyLine {
public:
    explicit ReadyLine(std::string text)
        : m_text(std::move(text)),
          m_id(PlaceAfter("\"id\":\"")),
          m_time(PlaceAfter("\"time\":\"")) {}

    std::string_view Text() const noexcept { return m_text; }

    void SetId(const RandomId& id) noexcept { WriteIdText(id, m_text.data() + m_id); }

    /// Within the second; the rest of the time is left as it is.
    void SetMicroseconds(unsigned microseconds) noexcept {
        char* const lastDigit = m_text.data() + m_time + std::string_view(wholeTime).size() - 2;
        for (int digit = 0; digit < 6; ++digit) {
            lastDigit[-digit] = static_cast<char>('0' + microseconds % 10);
            microseconds /= 10;
        }
    }

    static constexpr const char* wholeTime = "2000-01-01T00:00:00.000000Z";

private:
    std::size_t PlaceAfter(const std::string& part) const {
        const std::size_t place = m_text.find(part);
        if (place == std::string::npos) {
            throw std::logic_error("no " + part + " in: " + m_text);
        }
        return place + part.size();
    }

    std::string m_text;
    std::size_t m_id;
    std::size_t m_time;
};

/// Both lines of a scope, with line ends or without.
struct ReadyLines {
    ReadyLine begin;
    ReadyLine end;

    std::size_t Bytes() const noexcept { return begin.Text().size() + end.Text().size(); }
};

/// As the library writes them for the scope that all benchmarks measure, in one open parent.
ReadyLines MakeReadyLines(const std::string& lineEnd);

}  // namespace benchmarks
