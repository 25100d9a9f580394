#include "read/HarmlessJson.h"

#include "read/Printable.h"

#include <cstdio>

namespace tarnview {

void HarmlessJson::PutOther(char letter) {
    m_character.push_back(letter);
    const auto first = static_cast<unsigned char>(m_character.front());
    const std::size_t length = first >= 0xF0 ? 4U : first >= 0xE0 ? 3U : first >= 0xC0 ? 2U : 1U;
    if (m_character.size() < length) {
        return;
    }
    const Utf8Character character = FirstCharacter(m_character);
    if (character.length != 0 && IsHarmful(character.code)) {
        char escape[8];
        std::snprintf(escape, sizeof(escape), "\\u%04X", static_cast<unsigned>(character.code));
        m_out << escape;
    } else {
        m_out << m_character;
    }
    m_character.clear();
}

}  // namespace tarnview
