#pragma once

#include "activity/Activity.h"
#include "expression/Lexer.h"

#include <memory>
#include <string>
#include <string_view>

namespace tarnview {

/// A condition on the fields of an activity, such as
///
///     user == "bob" and elapsed > 5ms and body.shard in (3, 4)
///
/// Comparisons (== != < <= > >=, =~ and !~ with patterns of the shell, in, not in), `has FIELD`,
/// fields that are true or false by themselves, `and`, `or`, `not` and parentheses. A value;
/// copies share what is parsed. May be used by several threads.
///
/// What an activity does not have equals nothing, and is neither less nor more than anything; `!=`,
/// `!~` and `not in` are the opposites of `==`, `=~` and `in`. Numbers that attributes hold as
/// texts are compared as numbers with numbers.
class Expression {
public:
    class Node;

    /// Throws ExpressionError if the text is no condition, names an unknown field, or compares what
    /// cannot be compared.
    explicit Expression(std::string_view text);

    bool Matches(const Activity& activity) const;

    /// Whether lines must be parsed with their tables.
    bool NeedsTables() const { return m_needsTables; }

private:
    std::shared_ptr<const Node> m_root;
    bool m_needsTables = false;
};

}  // namespace tarnview
