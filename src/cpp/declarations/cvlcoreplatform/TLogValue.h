#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <unordered_map>
#include <vector>

/// Values of structured log events. They are immutable once built and shared by
/// `std::shared_ptr`, so any number of threads may read one.
namespace TLog {

enum class ValueKind { Literal, Object, Array };

/// Base of what an event can hold.
class CVLCOREPLATFORM_API Value {
public:
    virtual ~Value();
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;

    ValueKind GetKind() const noexcept { return m_kind; }

protected:
    explicit Value(ValueKind kind) noexcept : m_kind(kind) {}

private:
    ValueKind m_kind;
};

/// From a field's name to its value; the names of a table have no order.
using NameTable = std::unordered_map<TString, std::shared_ptr<Value>>;

enum class LiteralType : int32 {
    String = 0,
    Integer = 1,
    Double = 2,       ///< general notation
    FixedDouble = 3,  ///< fixed notation
    Boolean = 4,
    Null = 5,
};

/// A single value. Reading it as another type than its own gives 0, false or the empty text.
class CVLCOREPLATFORM_API Literal final : public Value {
    struct Key {};

public:
    static std::shared_ptr<Literal> String(TString text);
    static std::shared_ptr<Literal> Int(int64 value);
    static std::shared_ptr<Literal> Bool(bool value);

    /// `notation` 0 is general, 1 is fixed.
    static std::shared_ptr<Literal> Double(double value, int notation);

    /// Always the same object.
    static const std::shared_ptr<Literal>& Null();

    LiteralType GetType() const noexcept { return m_type; }

    const TString& GetString() const noexcept { return m_text; }

    int64 GetInt() const noexcept { return m_type == LiteralType::Integer ? m_integer : 0; }

    bool GetBool() const noexcept { return m_type == LiteralType::Boolean && m_integer != 0; }

    double GetDouble() const noexcept {
        return m_type == LiteralType::Double || m_type == LiteralType::FixedDouble ? m_double : 0;
    }

    // Public only for std::make_shared; `Key` keeps callers on the named makers above.
    Literal(Key, LiteralType type, int64 integer, double real, TString text) noexcept;
    ~Literal() override;
    Literal(const Literal&) = delete;
    Literal& operator=(const Literal&) = delete;

private:
    TString m_text;
    int64 m_integer;
    double m_double;
    LiteralType m_type;
};

/// Named values.
class CVLCOREPLATFORM_API Object final : public Value {
    struct Key {};

public:
    static std::shared_ptr<Object> Make(NameTable fields);

    const NameTable& GetFields() const noexcept { return m_fields; }

    Object(Key, NameTable fields) noexcept;
    ~Object() override;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

private:
    NameTable m_fields;
};

/// Values in order.
class CVLCOREPLATFORM_API Array final : public Value {
    struct Key {};

public:
    static std::shared_ptr<Array> Make(std::vector<std::shared_ptr<Value>> items);

    const std::vector<std::shared_ptr<Value>>& GetItems() const noexcept { return m_items; }

    Array(Key, std::vector<std::shared_ptr<Value>> items) noexcept;
    ~Array() override;
    Array(const Array&) = delete;
    Array& operator=(const Array&) = delete;

private:
    std::vector<std::shared_ptr<Value>> m_items;
};

}  // namespace TLog
