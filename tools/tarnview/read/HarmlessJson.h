#pragma once

#include <ostream>
#include <string>

namespace tarnview {

/// A stream for writers of RapidJSON, which escapes what Printable() replaces: JSON says the same
/// then, and moves no terminal's cursor. The stream behind it must live as long. Used by one
/// thread.
class HarmlessJson {
public:
    using Ch = char;

    explicit HarmlessJson(std::ostream& out) : m_out(out) {}

    void Put(char letter) {
        if (static_cast<unsigned char>(letter) < 0x7F && m_character.empty()) {
            m_out.put(letter);
        } else {
            PutOther(letter);
        }
    }

    void Flush() { m_out.flush(); }

private:
    void PutOther(char letter);

    std::ostream& m_out;
    std::string m_character;  // as far as it has come
};

}  // namespace tarnview
