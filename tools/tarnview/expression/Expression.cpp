#include "expression/Expression.h"

#include "expression/Nodes.h"
#include "read/Printable.h"
#include "read/Timestamp.h"

#include <utility>
#include <vector>

namespace tarnview {

namespace {

using Kind = Token::Kind;

std::string_view NameOf(ValueType type) {
    switch (type) {
        case ValueType::Text:
            return "a text";
        case ValueType::Number:
            return "a number";
        case ValueType::Duration:
            return "a duration";
        case ValueType::Size:
            return "a size";
        case ValueType::Time:
            return "a time";
        case ValueType::Boolean:
            return "true or false";
        case ValueType::Any:
            break;
    }
    return "an attribute";
}

struct RelationSign {
    std::string_view sign;
    Relation relation;
    bool isNegated;
};

constexpr RelationSign relations[] = {
    {"==", Relation::Equal, false},
    {"=", Relation::Equal, false},
    {"!=", Relation::Equal, true},
    {"<", Relation::Less, false},
    {"<=", Relation::LessOrEqual, false},
    {">", Relation::Greater, false},
    {">=", Relation::GreaterOrEqual, false},
    {"=~", Relation::Fits, false},
    {"!~", Relation::Fits, true},
};

class Parser {
public:
    explicit Parser(std::string_view text) : m_tokens(TokensOf(text)) {}

    NodePointer Run() {
        NodePointer node = Or();
        if (Current().kind != Kind::End) {
            Fail("'and', 'or' or the end is expected here");
        }
        return node;
    }

    bool NeedsTables() const { return m_needsTables; }

private:
    const Token& Current() const { return m_tokens[m_next]; }

    bool Is(Kind kind, std::string_view text) const {
        return Current().kind == kind && Current().text == text;
    }

    bool Skip(Kind kind, std::string_view text) {
        const bool isIt = Is(kind, text);
        m_next += isIt ? 1U : 0U;
        return isIt;
    }

    void Expect(std::string_view sign) {
        if (!Skip(Kind::Sign, sign)) {
            Fail("'" + std::string(sign) + "' is expected here");
        }
    }

    [[noreturn]] void Fail(const std::string& message) const {
        throw ExpressionError(Current().position, message);
    }

    NodePointer Or() {
        std::vector<NodePointer> nodes;
        do {
            nodes.push_back(And());
        } while (Skip(Kind::Word, "or"));
        return nodes.size() == 1 ? std::move(nodes.front()) : MakeAny(std::move(nodes));
    }

    NodePointer And() {
        std::vector<NodePointer> nodes;
        do {
            nodes.push_back(Not());
        } while (Skip(Kind::Word, "and"));
        return nodes.size() == 1 ? std::move(nodes.front()) : MakeAll(std::move(nodes));
    }

    NodePointer Not() {
        // Deeper ones are no question of people, and each level takes a part of the stack.
        constexpr std::size_t deepest = 200;
        if (m_depth == deepest) {
            Fail("this is nested too deeply");
        }
        ++m_depth;
        NodePointer node;
        if (Skip(Kind::Word, "not")) {
            node = MakeNot(Not());
        } else if (Skip(Kind::Sign, "(")) {
            node = Or();
            Expect(")");
        } else if (Skip(Kind::Word, "has")) {
            node = MakePresence(Field());
        } else {
            node = Comparison();
        }
        --m_depth;
        return node;
    }

    ActivityField Field() {
        if (Current().kind != Kind::Name) {
            Fail("the name of a field is expected here");
        }
        const auto field = ActivityField::Find(Current().text);
        if (!field) {
            Fail("'" + Printable(Current().text) + "' is no field; known are " +
                 ActivityField::KnownNames());
        }
        m_needsTables = m_needsTables || field->NeedsTables();
        ++m_next;
        return *field;
    }

    Operand Side() {
        Operand operand;
        operand.position = Current().position;
        if (Current().kind == Kind::Name) {
            operand.field = Field();
            operand.type = operand.field->Type();
        } else if (Current().kind == Kind::Constant) {
            operand.constant = Current().constant;
            operand.type = Current().type;
            ++m_next;
        } else {
            Fail("a field or a constant is expected here");
        }
        return operand;
    }

    NodePointer Comparison() {
        Operand left = Side();
        const std::size_t signPosition = Current().position;
        if (Skip(Kind::Word, "in")) {
            return Membership(std::move(left));
        }
        if (Is(Kind::Word, "not") && m_tokens[m_next + 1].text == "in") {
            m_next += 2;
            return MakeNot(Membership(std::move(left)));
        }
        for (const RelationSign& sign : relations) {
            if (Skip(Kind::Sign, sign.sign)) {
                Operand right = Side();
                Check(sign, signPosition, left, right);
                NodePointer node = MakeComparison(sign.relation, std::move(left), std::move(right));
                return sign.isNegated ? MakeNot(std::move(node)) : std::move(node);
            }
        }
        const bool mayBeTrue =
            left.field && (left.type == ValueType::Boolean || left.type == ValueType::Any);
        if (!mayBeTrue) {
            Fail("a comparison is expected here, as == or <");
        }
        return MakeComparison(Relation::Equal, std::move(left), Operand{{}, Value::Of(true)});
    }

    NodePointer Membership(Operand operand) {
        std::vector<Operand> list;
        Expect("(");
        do {
            Operand member = Side();
            Check(relations[0], member.position, operand, member);
            list.push_back(std::move(member));
        } while (Skip(Kind::Sign, ","));
        Expect(")");
        return MakeMembership(std::move(operand), std::move(list));
    }

    // Texts that are compared with times become times here.
    static void Check(const RelationSign& sign,
                      std::size_t signPosition,
                      Operand& left,
                      Operand& right) {
        if (sign.relation == Relation::Fits) {
            if (right.field || right.type != ValueType::Text) {
                throw ExpressionError(right.position, "a pattern is expected here, as \"load*\"");
            }
            if (left.type != ValueType::Text && left.type != ValueType::Any) {
                throw ExpressionError(signPosition, "only texts fit patterns");
            }
            return;
        }
        BecomeTime(left, right.type);
        BecomeTime(right, left.type);
        CheckPair(left, right);
        const bool isOrder = sign.relation != Relation::Equal;
        if (isOrder && (left.type == ValueType::Boolean || right.type == ValueType::Boolean)) {
            throw ExpressionError(signPosition, "true and false are not more or less");
        }
    }

    static void BecomeTime(Operand& operand, ValueType other) {
        if (other != ValueType::Time || operand.field || operand.type != ValueType::Text) {
            return;
        }
        const auto time = ParseLooseTimestamp(operand.constant.text);
        if (!time) {
            throw ExpressionError(operand.position, "this is no time, as \"2026-11-21T06:02:25\"");
        }
        operand.constant = Value::Of(*time);
        operand.type = ValueType::Time;
    }

    static void CheckPair(const Operand& left, const Operand& right) {
        const auto is = [&](ValueType a, ValueType b) {
            return (left.type == a && right.type == b) || (left.type == b && right.type == a);
        };
        const Operand& constant = right.field ? left : right;
        if (is(ValueType::Duration, ValueType::Number)) {
            throw ExpressionError(constant.position, "a duration needs a unit, as 5ms or 2s");
        }
        if (is(ValueType::Any, ValueType::Duration) && !constant.field) {
            throw ExpressionError(constant.position,
                                  "attributes have no unit; compare with a plain number");
        }
        const bool isAny = left.type == ValueType::Any || right.type == ValueType::Any;
        if (!isAny && left.type != right.type && !is(ValueType::Size, ValueType::Number)) {
            const Operand& other = &constant == &right ? left : right;
            throw ExpressionError(constant.position,
                                  std::string(NameOf(other.type)) + " is not compared with " +
                                      std::string(NameOf(constant.type)));
        }
    }

    std::vector<Token> m_tokens;
    std::size_t m_next = 0;
    std::size_t m_depth = 0;
    bool m_needsTables = false;
};

}  // namespace

Expression::Expression(std::string_view text) {
    Parser parser(text);
    m_root = parser.Run();
    m_needsTables = parser.NeedsTables();
}

bool Expression::Matches(const Activity& activity) const {
    return m_root->Holds(activity);
}

}  // namespace tarnview
