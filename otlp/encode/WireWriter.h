#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::otlp {

/// Appends fields in the wire format of protocol buffers to a text.
class WireWriter {
public:
    explicit WireWriter(std::string& out) : m_out(out) {}

    static constexpr std::size_t SizeOfVarint(std::uint64_t number) {
        return (static_cast<std::size_t>(std::bit_width(number | 1)) + 6) / 7;
    }

    /// Of a field with a number below 16, which takes a byte for its tag.
    static constexpr std::size_t SizeOfBytes(std::size_t length) {
        return 1 + SizeOfVarint(length) + length;
    }

    void Varint(std::uint64_t number) {
        while (number >= 0x80) {
            m_out.push_back(static_cast<char>(number | 0x80));
            number >>= 7;
        }
        m_out.push_back(static_cast<char>(number));
    }

    void VarintField(unsigned field, std::uint64_t number) {
        Tag(field, 0);
        Varint(number);
    }

    void Fixed64Field(unsigned field, std::uint64_t number) {
        Tag(field, 1);
        for (int shift = 0; shift < 64; shift += 8) {
            m_out.push_back(static_cast<char>(number >> shift));
        }
    }

    void BytesField(unsigned field, std::string_view bytes) {
        BeginBytes(field, bytes.size());
        m_out.append(bytes);
    }

    /// What follows, `length` bytes, is the field's content.
    void BeginBytes(unsigned field, std::size_t length) {
        Tag(field, 2);
        Varint(length);
    }

    void Raw(std::string_view bytes) { m_out.append(bytes); }

private:
    void Tag(unsigned field, unsigned type) { Varint(field << 3 | type); }

    std::string& m_out;
};

}  // namespace tarn::otlp
