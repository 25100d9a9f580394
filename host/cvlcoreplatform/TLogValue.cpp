#include "cvlcoreplatform/TLogValue.h"

#include "cvlsys/host/RecycledBlocks.h"

#include <atomic>
#include <memory>
#include <utility>

namespace TLog {

Value::~Value() = default;

namespace {

std::shared_ptr<Value> SharedValueOf(const Field& field) {
    return field.shared != nullptr ? field.shared : Literal::Make(field.literal);
}

NameTable TableOf(const FieldList& fields) {
    NameTable table(fields.size());
    for (const Field& field : fields) {
        table.insert_or_assign(field.name, SharedValueOf(field));
    }
    return table;
}

}  // namespace

Literal::Literal(Key, LiteralContent content) noexcept
    : Value(ValueKind::Literal),
      m_content(std::move(content)) {}

Literal::~Literal() = default;

std::shared_ptr<Literal> Literal::Make(LiteralContent content) {
    return cvlsys::MakeRecycled<Literal>(Key(), std::move(content));
}

std::shared_ptr<Literal> Literal::String(TString text) {
    return Make(LiteralContent::String(std::move(text)));
}

std::shared_ptr<Literal> Literal::Int(int64 value) {
    return Make(LiteralContent::Int(value));
}

std::shared_ptr<Literal> Literal::Bool(bool value) {
    return Make(LiteralContent::Bool(value));
}

std::shared_ptr<Literal> Literal::Double(double value, int notation) {
    return Make(LiteralContent::Double(value, notation));
}

const std::shared_ptr<Literal>& Literal::Null() {
    static const std::shared_ptr<Literal>& null =
        *new std::shared_ptr<Literal>(Make(LiteralContent()));
    return null;
}

Object::Object(Key, NameTable fields)
    : Value(ValueKind::Object),
      m_isList(false),
      m_table(new NameTable(std::move(fields))) {}

Object::Object(Key, FieldList fields) noexcept
    : Value(ValueKind::Object),
      m_isList(true),
      m_list(std::move(fields)) {}

Object::~Object() {
    delete m_table.load(std::memory_order_relaxed);
}

std::shared_ptr<Object> Object::Make(NameTable fields) {
    return cvlsys::MakeRecycled<Object>(Key(), std::move(fields));
}

std::shared_ptr<Object> Object::MakeOfList(FieldList fields) {
    return cvlsys::MakeRecycled<Object>(Key(), std::move(fields));
}

// Threads that ask at the same time may both build a table; the first one that is done wins.
const NameTable& Object::GetFields() const {
    if (const NameTable* const table = m_table.load(std::memory_order_acquire)) {
        return *table;
    }
    auto built = std::make_unique<const NameTable>(TableOf(m_list));
    const NameTable* expected = nullptr;
    if (m_table.compare_exchange_strong(
            expected, built.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
        return *built.release();
    }
    return *expected;
}

Array::Array(Key, std::vector<std::shared_ptr<Value>> items) noexcept
    : Value(ValueKind::Array),
      m_items(std::move(items)) {}

Array::~Array() = default;

std::shared_ptr<Array> Array::Make(std::vector<std::shared_ptr<Value>> items) {
    return cvlsys::MakeRecycled<Array>(Key(), std::move(items));
}

}  // namespace TLog
