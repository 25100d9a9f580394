#pragma once

#include "expression/Value.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// What is wrong with an expression, and where: a byte of its text, from 0 on.
class ExpressionError : public std::runtime_error {
public:
    ExpressionError(std::size_t position, const std::string& message)
        : std::runtime_error(message),
          m_position(position) {}

    std::size_t Position() const { return m_position; }

private:
    std::size_t m_position;
};

/// A word, a constant or a sign of an expression.
struct Token {
    enum class Kind { Name, Word, Constant, Sign, End };

    Kind kind = Kind::End;
    std::size_t position = 0;
    std::string text{};  ///< a name without its quotes; a word or sign as it is spelled
    Value constant{};    ///< of a Constant
    ValueType type = ValueType::Any;  ///< of a Constant: Text, Number, Duration, Size, Boolean
};

/// The tokens of an expression; the last one is the end. Throws ExpressionError.
std::vector<Token> TokensOf(std::string_view text);

}  // namespace tarnview
