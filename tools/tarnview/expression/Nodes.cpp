#include "expression/Nodes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fnmatch.h>
#include <utility>

namespace tarnview {

namespace {

using Kind = Value::Kind;

template <class Function>
class FunctionNode : public Expression::Node {
public:
    explicit FunctionNode(Function function) : m_function(std::move(function)) {}

    bool Holds(const Activity& activity) const override { return m_function(activity); }

private:
    Function m_function;
};

template <class Function>
NodePointer MakeNode(Function function) {
    return std::make_unique<FunctionNode<Function>>(std::move(function));
}

std::optional<long double> NumberOf(const Value& value) {
    if (value.kind == Kind::Number) {
        return value.number;
    }
    // strtold() takes more than this: blanks, hexadecimal digits, "nan" and "inf".
    const bool isPlain = value.kind == Kind::Text && !value.text.empty() &&
                         value.text.find_first_not_of("0123456789+-.eE") == std::string::npos;
    if (!isPlain) {
        return std::nullopt;
    }
    char* rest = nullptr;
    const long double number = std::strtold(value.text.c_str(), &rest);
    const bool isWhole = rest == value.text.c_str() + value.text.size();
    return isWhole ? std::optional(number) : std::nullopt;
}

template <class Compared>
bool Compare(Relation relation, const Compared& left, const Compared& right) {
    switch (relation) {
        case Relation::Equal:
            return left == right;
        case Relation::Less:
            return left < right;
        case Relation::LessOrEqual:
            return left <= right;
        case Relation::Greater:
            return left > right;
        case Relation::GreaterOrEqual:
            return left >= right;
        case Relation::Fits:
            break;
    }
    return false;
}

}  // namespace

// Attributes are numbers in one program and texts in another.
std::string PlainText(const Value& value) {
    switch (value.kind) {
        case Kind::Text:
            return value.text;
        case Kind::Boolean:
            return value.boolean ? "true" : "false";
        case Kind::Number: {
            char text[64];
            std::snprintf(text, sizeof(text), "%.21Lg", value.number);
            return text;
        }
        case Kind::Missing:
            break;
    }
    return "";
}

bool Holds(Relation relation, const Value& left, const Value& right) {
    if (left.IsMissing() || right.IsMissing()) {
        return false;
    }
    if (relation == Relation::Fits) {
        return fnmatch(right.text.c_str(), PlainText(left).c_str(), 0) == 0;
    }
    if (left.kind == Kind::Text && right.kind == Kind::Text) {
        return Compare(relation, left.text, right.text);
    }
    if (left.kind == Kind::Boolean || right.kind == Kind::Boolean) {
        return relation == Relation::Equal && PlainText(left) == PlainText(right);
    }
    const auto leftNumber = NumberOf(left);
    const auto rightNumber = NumberOf(right);
    return leftNumber && rightNumber && Compare(relation, *leftNumber, *rightNumber);
}

NodePointer MakeAll(std::vector<NodePointer> nodes) {
    return MakeNode([nodes = std::move(nodes)](const Activity& activity) {
        return std::all_of(nodes.begin(), nodes.end(), [&](const NodePointer& node) {
            return node->Holds(activity);
        });
    });
}

NodePointer MakeAny(std::vector<NodePointer> nodes) {
    return MakeNode([nodes = std::move(nodes)](const Activity& activity) {
        return std::any_of(nodes.begin(), nodes.end(), [&](const NodePointer& node) {
            return node->Holds(activity);
        });
    });
}

NodePointer MakeNot(NodePointer node) {
    return MakeNode(
        [node = std::move(node)](const Activity& activity) { return !node->Holds(activity); });
}

NodePointer MakeComparison(Relation relation, Operand left, Operand right) {
    return MakeNode(
        [relation, left = std::move(left), right = std::move(right)](const Activity& activity) {
            return Holds(relation, left.Of(activity), right.Of(activity));
        });
}

NodePointer MakeMembership(Operand operand, std::vector<Operand> list) {
    return MakeNode(
        [operand = std::move(operand), list = std::move(list)](const Activity& activity) {
            const Value value = operand.Of(activity);
            return std::any_of(list.begin(), list.end(), [&](const Operand& member) {
                return Holds(Relation::Equal, value, member.Of(activity));
            });
        });
}

NodePointer MakePresence(ActivityField field) {
    return MakeNode([field = std::move(field)](const Activity& activity) {
        const Value value = field.Of(activity);
        return !value.IsMissing() && !(value.kind == Kind::Text && value.text == "-");
    });
}

}  // namespace tarnview
