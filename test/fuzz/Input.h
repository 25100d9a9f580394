#pragma once

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

/// What a fuzzer tries: called once for each input. An input that it does not like ends the
/// process.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

namespace fuzz {

/// Ends the process when a promise is broken, in any kind of build.
inline void Require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// Reads an input as choices, numbers and texts. At its end everything is zero and empty.
class Input {
public:
    Input(const unsigned char* data, std::size_t size) : m_data(data), m_left(size) {}

    bool IsAtEnd() const { return m_left == 0; }

    template <class T>
    T Number() {
        T number{};
        const std::size_t bytes = m_left < sizeof number ? m_left : sizeof number;
        if (bytes != 0) {
            std::memcpy(&number, m_data, bytes);
            Skip(bytes);
        }
        return number;
    }

    uint32 Below(uint32 limit) { return Number<unsigned char>() % limit; }

    bool Flag() { return Below(2) == 1; }

    /// Any bytes, as many as the next byte says.
    std::string Bytes() {
        const std::size_t wanted = Number<unsigned char>();
        const std::size_t bytes = m_left < wanted ? m_left : wanted;
        std::string text;
        if (bytes != 0) {
            text.assign(reinterpret_cast<const char*>(m_data), bytes);
            Skip(bytes);
        }
        return text;
    }

    /// Any units: one byte each, or two when the input asks for the full range.
    std::u16string Units() {
        const bool isWide = Flag();
        const std::string bytes = Bytes();
        std::u16string units;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            auto unit = static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
            if (isWide && i + 1 < bytes.size()) {
                ++i;
                unit = static_cast<char16_t>(unit << 8 | static_cast<unsigned char>(bytes[i]));
            }
            units.push_back(unit);
        }
        return units;
    }

    /// A name that means something to the monitor, or any text.
    std::string Name();

    /// Of all kinds, and of kinds that there are not; texts may be missing.
    Metrics::MetricsValue Value();

    Metrics::NameValueList Pairs();

    Metrics::MetricsEvent Event();

private:
    void Skip(std::size_t bytes) {
        m_data += bytes;
        m_left -= bytes;
    }

    const unsigned char* m_data;
    std::size_t m_left;
};

}  // namespace fuzz
