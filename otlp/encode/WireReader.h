#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarn::otlp {

/// Reads fields in the wire format of protocol buffers, one after the other.
class WireReader {
public:
    explicit WireReader(std::string_view text) : m_rest(text) {}

    /// False at the end, and for ever when the text is broken.
    bool Next() {
        std::uint64_t tag = 0;
        if (m_isBroken || m_rest.empty()) {
            return false;
        }
        m_isBroken = !TakeVarint(tag) || tag >> 3 == 0 || !TakeValue(tag & 7);
        field = tag >> 3;
        return !m_isBroken;
    }

    bool IsBroken() const { return m_isBroken; }

    // Of the field that Next() has found.
    std::uint64_t field = 0;
    std::uint64_t number = 0;  ///< 0 if it is of bytes
    std::string_view bytes;    ///< empty if it is a number

private:
    bool TakeVarint(std::uint64_t& value) {
        value = 0;
        for (int shift = 0; shift < 64 && !m_rest.empty(); shift += 7) {
            const auto byte = static_cast<unsigned char>(m_rest.front());
            m_rest.remove_prefix(1);
            value |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
            if (byte < 0x80) {
                return true;
            }
        }
        return false;
    }

    bool TakeValue(std::uint64_t type) {
        number = 0;
        bytes = {};
        std::uint64_t length = 0;
        switch (type) {
            case 0:
                return TakeVarint(number);
            case 1:
                length = 8;
                break;
            case 2:
                if (!TakeVarint(length)) {
                    return false;
                }
                break;
            case 5:
                length = 4;
                break;
            default:
                return false;
        }
        if (length > m_rest.size()) {
            return false;
        }
        bytes = m_rest.substr(0, length);
        m_rest.remove_prefix(length);
        return true;
    }

    std::string_view m_rest;
    bool m_isBroken = false;
};

}  // namespace tarn::otlp
