#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarnview {

/// Reads the wire form of protocol buffers: the fields of a message, with numbers or texts.
class WireReader {
public:
    struct Field {
        std::uint64_t number = 0;
        std::uint64_t value = 0;
        std::string text{};
    };

    explicit WireReader(std::string text) : m_text(std::move(text)) {}

    std::vector<Field> Fields() {
        std::vector<Field> fields;
        while (m_place < m_text.size()) {
            const std::uint64_t key = Varint();
            Field field{key >> 3U};
            if ((key & 7U) == 0) {
                field.value = Varint();
            } else {
                const std::uint64_t length = Varint();
                field.text = m_text.substr(m_place, length);
                m_place += length;
            }
            fields.push_back(field);
        }
        return fields;
    }

    std::vector<std::uint64_t> Numbers() {
        std::vector<std::uint64_t> numbers;
        while (m_place < m_text.size()) {
            numbers.push_back(Varint());
        }
        return numbers;
    }

private:
    std::uint64_t Varint() {
        std::uint64_t value = 0;
        for (unsigned shift = 0; m_place < m_text.size(); shift += 7) {
            const auto byte = static_cast<unsigned char>(m_text[m_place++]);
            value |= std::uint64_t{byte & 0x7FU} << shift;
            if ((byte & 0x80U) == 0) {
                break;
            }
        }
        return value;
    }

    std::string m_text;
    std::size_t m_place = 0;
};

/// The only field of that number; an empty one if there is none.
inline WireReader::Field FieldOf(const std::string& message, std::uint64_t number) {
    for (const WireReader::Field& field : WireReader(message).Fields()) {
        if (field.number == number) {
            return field;
        }
    }
    return {};
}

}  // namespace tarnview
