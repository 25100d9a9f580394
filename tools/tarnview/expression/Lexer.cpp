#include "expression/Lexer.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tarnview {

namespace {

constexpr std::string_view words[] = {"and", "or", "not", "in", "has"};
// The longer ones first.
constexpr std::string_view signs[] = {
    "==", "!=", "<=", ">=", "=~", "!~", "=", "<", ">", "(", ")", ","};

struct Unit {
    std::string_view name;
    ValueType type;
    long double factor;
};

constexpr Unit units[] = {
    {"us", ValueType::Duration, 1},
    {"ms", ValueType::Duration, 1e3L},
    {"s", ValueType::Duration, 1e6L},
    {"m", ValueType::Duration, 60e6L},
    {"min", ValueType::Duration, 60e6L},
    {"h", ValueType::Duration, 3600e6L},
    {"d", ValueType::Duration, 86400e6L},
    {"B", ValueType::Size, 1},
    {"kB", ValueType::Size, 1e3L},
    {"MB", ValueType::Size, 1e6L},
    {"GB", ValueType::Size, 1e9L},
};

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

bool IsBlank(char letter) {
    return letter == ' ' || letter == '\t' || letter == '\n' || letter == '\r';
}

bool BeginsName(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || letter == '_' ||
           static_cast<unsigned char>(letter) >= 0x80;
}

bool IsInName(char letter) {
    return BeginsName(letter) || IsDigit(letter) || letter == '-' || letter == '.';
}

class Lexer {
public:
    explicit Lexer(std::string_view text) : m_text(text) {}

    std::vector<Token> Run() {
        std::vector<Token> tokens;
        do {
            while (m_next < m_text.size() && IsBlank(m_text[m_next])) {
                ++m_next;
            }
            tokens.push_back(Next());
        } while (tokens.back().kind != Token::Kind::End);
        return tokens;
    }

private:
    char Peek(std::size_t ahead = 0) const {
        return m_next + ahead < m_text.size() ? m_text[m_next + ahead] : '\0';
    }

    Token Next() {
        Token token;
        token.position = m_next;
        if (m_next == m_text.size()) {
            token.text = "the end";
        } else if (Peek() == '"' || Peek() == '\'') {
            token.kind = Token::Kind::Constant;
            token.type = ValueType::Text;
            token.constant = Value::Of(std::string_view(Quoted()));
        } else if (IsDigit(Peek()) || (Peek() == '-' && IsDigit(Peek(1)))) {
            ReadNumber(token);
        } else if (BeginsName(Peek())) {
            ReadName(token);
        } else {
            ReadSign(token);
        }
        return token;
    }

    std::string Quoted() {
        const std::size_t start = m_next;
        const char quote = m_text[m_next++];
        std::string text;
        while (m_next < m_text.size() && m_text[m_next] != quote) {
            if (m_text[m_next] == '\\' && m_next + 1 < m_text.size()) {
                ++m_next;
            }
            text.push_back(m_text[m_next++]);
        }
        if (m_next == m_text.size()) {
            throw ExpressionError(start, "the text that begins here does not end");
        }
        ++m_next;
        return text;
    }

    // Not by strtold() alone, which takes more than decimal numbers.
    void ReadNumber(Token& token) {
        const std::size_t start = m_next;
        m_next += Peek() == '-' ? 1U : 0U;
        const auto skipDigits = [this] {
            while (IsDigit(Peek())) {
                ++m_next;
            }
        };
        skipDigits();
        if (Peek() == '.' && IsDigit(Peek(1))) {
            ++m_next;
            skipDigits();
        }
        const std::string digits(m_text.substr(start, m_next - start));
        const std::size_t unitStart = m_next;
        while (BeginsName(Peek()) || IsDigit(Peek())) {
            ++m_next;
        }
        const std::string_view name = m_text.substr(unitStart, m_next - unitStart);
        token.kind = Token::Kind::Constant;
        token.type = ValueType::Number;
        long double factor = 1;
        if (!name.empty()) {
            const auto* const unit = std::find_if(std::begin(units),
                                                  std::end(units),
                                                  [&](const Unit& it) { return it.name == name; });
            if (unit == std::end(units)) {
                throw ExpressionError(
                    unitStart,
                    "'" + std::string(name) +
                        "' is no unit; known are us, ms, s, m, h, d, B, kB, MB, GB");
            }
            token.type = unit->type;
            factor = unit->factor;
        }
        // 0.1ms are 100 us, not a trifle more.
        constexpr long double finest = 1e3L;
        const long double number = std::strtold(digits.c_str(), nullptr);
        token.constant =
            Value::Of(factor == 1 ? number : std::round(number * factor * finest) / finest);
    }

    // What follows a dot may be quoted: body."a strange name".
    void ReadName(Token& token) {
        while (IsInName(Peek())) {
            token.text.push_back(m_text[m_next++]);
        }
        if (token.text.back() == '.' && (Peek() == '"' || Peek() == '\'')) {
            token.text += Quoted();
            token.kind = Token::Kind::Name;
            return;
        }
        if (token.text == "true" || token.text == "false") {
            token.kind = Token::Kind::Constant;
            token.type = ValueType::Boolean;
            token.constant = Value::Of(token.text == "true");
            return;
        }
        const bool isWord =
            std::find(std::begin(words), std::end(words), token.text) != std::end(words);
        token.kind = isWord ? Token::Kind::Word : Token::Kind::Name;
    }

    void ReadSign(Token& token) {
        for (const std::string_view sign : signs) {
            if (m_text.substr(m_next, sign.size()) == sign) {
                token.kind = Token::Kind::Sign;
                token.text = sign;
                m_next += sign.size();
                return;
            }
        }
        const bool isPrintable = Peek() > 0x20 && Peek() < 0x7F;
        throw ExpressionError(m_next,
                              isPrintable ? std::string("'") + Peek() + "' means nothing here"
                                          : "a character that means nothing here");
    }

    std::string_view m_text;
    std::size_t m_next = 0;
};

}  // namespace

std::vector<Token> TokensOf(std::string_view text) {
    return Lexer(text).Run();
}

}  // namespace tarnview
