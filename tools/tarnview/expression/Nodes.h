#pragma once

#include "expression/ActivityField.h"
#include "expression/Expression.h"
#include "expression/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// A part of an expression that holds for an activity or not.
class Expression::Node {
public:
    virtual ~Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    virtual bool Holds(const Activity& activity) const = 0;

protected:
    Node() = default;
};

using NodePointer = std::unique_ptr<const Expression::Node>;

/// One side of a comparison: a field or a constant.
struct Operand {
    std::optional<ActivityField> field;
    Value constant;
    ValueType type = ValueType::Any;
    std::size_t position = 0;

    Value Of(const Activity& activity) const { return field ? field->Of(activity) : constant; }
};

enum class Relation { Equal, Less, LessOrEqual, Greater, GreaterOrEqual, Fits };

/// Whether the relation holds; never if one of the two is missing, or if they cannot be compared.
bool Holds(Relation relation, const Value& left, const Value& right);

NodePointer MakeAll(std::vector<NodePointer> nodes);
NodePointer MakeAny(std::vector<NodePointer> nodes);
NodePointer MakeNot(NodePointer node);
NodePointer MakeComparison(Relation relation, Operand left, Operand right);
NodePointer MakeMembership(Operand operand, std::vector<Operand> list);
/// Whether the field is there; "-" stands for what is not.
NodePointer MakePresence(ActivityField field);

}  // namespace tarnview
