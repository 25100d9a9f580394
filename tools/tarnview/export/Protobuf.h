#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnview {

/// Writes the wire form of protocol buffers: varints, texts and messages within messages.
class Protobuf {
public:
    void Integer(std::uint32_t field, std::uint64_t value) {
        Varint(std::uint64_t{field} << 3U);
        Varint(value);
    }

    void Bytes(std::uint32_t field, std::string_view bytes) {
        constexpr std::uint64_t lengthDelimited = 2;
        Varint((std::uint64_t{field} << 3U) | lengthDelimited);
        Varint(bytes.size());
        m_text.append(bytes);
    }

    void Message(std::uint32_t field, const Protobuf& message) { Bytes(field, message.m_text); }

    /// A number without a field, as packed lists have them.
    void Varint(std::uint64_t value) {
        while (value >= 0x80) {
            m_text.push_back(static_cast<char>((value & 0x7FU) | 0x80U));
            value >>= 7U;
        }
        m_text.push_back(static_cast<char>(value));
    }

    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

}  // namespace tarnview
