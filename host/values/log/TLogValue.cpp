#include "cvlcoreplatform/TLogValue.h"

#include "cvlsys/host/RecycledBlocks.h"

#include <utility>

namespace TLog {

Value::~Value() = default;

Literal::Literal(Key, LiteralType type, int64 integer, double real, TString text) noexcept
    : Value(ValueKind::Literal),
      m_text(std::move(text)),
      m_integer(integer),
      m_double(real),
      m_type(type) {}

Literal::~Literal() = default;

std::shared_ptr<Literal> Literal::String(TString text) {
    return cvlsys::MakeRecycled<Literal>(Key(), LiteralType::String, 0, 0.0, std::move(text));
}

std::shared_ptr<Literal> Literal::Int(int64 value) {
    return cvlsys::MakeRecycled<Literal>(Key(), LiteralType::Integer, value, 0.0, TString());
}

std::shared_ptr<Literal> Literal::Bool(bool value) {
    return cvlsys::MakeRecycled<Literal>(
        Key(), LiteralType::Boolean, value ? 1 : 0, 0.0, TString());
}

std::shared_ptr<Literal> Literal::Double(double value, int notation) {
    const LiteralType type = notation == 1 ? LiteralType::FixedDouble : LiteralType::Double;
    return cvlsys::MakeRecycled<Literal>(Key(), type, 0, value, TString());
}

const std::shared_ptr<Literal>& Literal::Null() {
    static const std::shared_ptr<Literal>& null = *new std::shared_ptr<Literal>(
        cvlsys::MakeRecycled<Literal>(Key(), LiteralType::Null, 0, 0.0, TString()));
    return null;
}

Object::Object(Key, NameTable fields) noexcept
    : Value(ValueKind::Object),
      m_fields(std::move(fields)) {}

Object::~Object() = default;

std::shared_ptr<Object> Object::Make(NameTable fields) {
    return cvlsys::MakeRecycled<Object>(Key(), std::move(fields));
}

Array::Array(Key, std::vector<std::shared_ptr<Value>> items) noexcept
    : Value(ValueKind::Array),
      m_items(std::move(items)) {}

Array::~Array() = default;

std::shared_ptr<Array> Array::Make(std::vector<std::shared_ptr<Value>> items) {
    return cvlsys::MakeRecycled<Array>(Key(), std::move(items));
}

}  // namespace TLog
