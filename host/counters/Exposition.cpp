#include "Exposition.h"

#include <charconv>
#include <cstddef>
#include <limits>

namespace tarn {

std::string EscapeLabel(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        switch (character) {
            case '\\':
                escaped += "\\\\";
                break;
            case '"':
                escaped += "\\\"";
                break;
            case '\n':
                escaped += "\\n";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

void Exposition::Family(std::string_view name, std::string_view type, std::string_view help) {
    m_family = name;
    m_text.append("# HELP ").append(name).append(" ").append(help).append("\n");
    m_text.append("# TYPE ").append(name).append(" ").append(type).append("\n");
}

void Exposition::Head(std::string_view suffix, std::string_view labels) {
    m_text.append(m_family).append(suffix);
    if (!labels.empty()) {
        m_text.append("{").append(labels).append("}");
    }
    m_text += ' ';
}

void Exposition::Number(uint64 value) {
    char digits[std::numeric_limits<uint64>::digits10 + 1];
    m_text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

void Exposition::Sample(std::string_view suffix, std::string_view labels, uint64 value) {
    Head(suffix, labels);
    Number(value);
    m_text += '\n';
}

void Exposition::Seconds(std::string_view suffix,
                         std::string_view labels,
                         uint64 value,
                         int digits) {
    uint64 inSecond = 1;
    for (int digit = 0; digit < digits; ++digit) {
        inSecond *= 10;
    }
    Head(suffix, labels);
    Number(value / inSecond);
    uint64 rest = value % inSecond;
    if (rest != 0) {
        m_text += '.';
        while (rest != 0) {
            inSecond /= 10;
            m_text += static_cast<char>('0' + rest / inSecond);
            rest %= inSecond;
        }
    }
    m_text += '\n';
}

void Exposition::Counter(std::string_view name, std::string_view help, uint64 value) {
    Family(name, "counter", help);
    Sample({}, {}, value);
}

void Exposition::Gauge(std::string_view name, std::string_view help, uint64 value) {
    Family(name, "gauge", help);
    Sample({}, {}, value);
}

}  // namespace tarn
