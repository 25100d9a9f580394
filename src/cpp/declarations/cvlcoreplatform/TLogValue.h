#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <memory>
#include <unordered_map>
#include <utility>
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

/// A literal by value. `type` says which of the members counts.
struct LiteralContent {
    LiteralType type = LiteralType::Null;

    union {
        int64 integer = 0;  ///< also of a boolean
        double real;
    };

    TString text;

    LiteralContent() noexcept = default;

    static LiteralContent String(TString text) noexcept {
        LiteralContent content;
        content.type = LiteralType::String;
        content.text = std::move(text);
        return content;
    }

    static LiteralContent Int(int64 value) noexcept {
        LiteralContent content;
        content.type = LiteralType::Integer;
        content.integer = value;
        return content;
    }

    static LiteralContent Bool(bool value) noexcept {
        LiteralContent content;
        content.type = LiteralType::Boolean;
        content.integer = value ? 1 : 0;
        return content;
    }

    /// `notation` 0 is general, 1 is fixed.
    static LiteralContent Double(double value, int notation) noexcept {
        LiteralContent content;
        content.type = notation == 1 ? LiteralType::FixedDouble : LiteralType::Double;
        content.real = value;
        return content;
    }
};

/// A single value. Reading it as another type than its own gives 0, false or the empty text.
class CVLCOREPLATFORM_API Literal final : public Value {
    struct Key {};

public:
    static std::shared_ptr<Literal> Make(LiteralContent content);
    static std::shared_ptr<Literal> String(TString text);
    static std::shared_ptr<Literal> Int(int64 value);
    static std::shared_ptr<Literal> Bool(bool value);

    /// `notation` 0 is general, 1 is fixed.
    static std::shared_ptr<Literal> Double(double value, int notation);

    /// Always the same object.
    static const std::shared_ptr<Literal>& Null();

    LiteralType GetType() const noexcept { return m_content.type; }

    const LiteralContent& GetContent() const noexcept { return m_content; }

    const TString& GetString() const noexcept { return m_content.text; }

    int64 GetInt() const noexcept {
        return GetType() == LiteralType::Integer ? m_content.integer : 0;
    }

    bool GetBool() const noexcept {
        return GetType() == LiteralType::Boolean && m_content.integer != 0;
    }

    double GetDouble() const noexcept {
        return GetType() == LiteralType::Double || GetType() == LiteralType::FixedDouble
                   ? m_content.real
                   : 0;
    }

    // Public only for std::make_shared; `Key` keeps callers on the named makers above.
    Literal(Key, LiteralContent content) noexcept;
    ~Literal() override;

private:
    LiteralContent m_content;
};

/// A field as it is given to an object: its value stands in it, or is shared with others.
struct Field {
    TString name;
    LiteralContent literal;         ///< counts when `shared` is null
    std::shared_ptr<Value> shared;  ///< an object, an array, or a literal that many events have

    Field(TString fieldName, LiteralContent content) noexcept
        : name(std::move(fieldName)),
          literal(std::move(content)) {}

    Field(TString fieldName, std::shared_ptr<Value> value) noexcept
        : name(std::move(fieldName)),
          shared(std::move(value)) {}
};

using FieldList = std::vector<Field>;

/// Named values.
class CVLCOREPLATFORM_API Object final : public Value {
    struct Key {};

public:
    static std::shared_ptr<Object> Make(NameTable fields);

    /// As above, for fields of whose names none occurs twice, in any order. Saves the table and
    /// the values in it until somebody asks for them.
    static std::shared_ptr<Object> MakeOfList(FieldList fields);

    /// Of an object that was made of a list: built at the first call, on any thread. Throws
    /// `std::bad_alloc`.
    const NameTable& GetFields() const;

    /// Null for an object that was made of a table.
    const FieldList* GetFieldList() const noexcept { return m_isList ? &m_list : nullptr; }

    Object(Key, NameTable fields);
    Object(Key, FieldList fields) noexcept;
    ~Object() override;

private:
    const bool m_isList;
    const FieldList m_list;
    // Owned; null until it is needed.
    mutable std::atomic<const NameTable*> m_table{nullptr};
};

/// Values in order.
class CVLCOREPLATFORM_API Array final : public Value {
    struct Key {};

public:
    static std::shared_ptr<Array> Make(std::vector<std::shared_ptr<Value>> items);

    const std::vector<std::shared_ptr<Value>>& GetItems() const noexcept { return m_items; }

    Array(Key, std::vector<std::shared_ptr<Value>> items) noexcept;
    ~Array() override;

private:
    std::vector<std::shared_ptr<Value>> m_items;
};

}  // namespace TLog
