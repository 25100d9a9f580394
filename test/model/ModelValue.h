#pragma once

#include "Observation.h"

#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <string>
#include <utility>
#include <vector>

namespace model {

/// A metrics value whose text, if it is one, is decoded and cut at its first NUL.
struct Value {
    uint32 type = Metrics::MetricsValue::MV_Int64;
    int64 integer = 0;
    bool boolean = false;
    double real = 0;
    std::u16string text;

    Value() = default;
    explicit Value(const Metrics::MetricsValue& value);

    /// A wide text.
    explicit Value(std::u16string_view wideText);

    bool IsText() const {
        return type == Metrics::MetricsValue::MV_Utf8String ||
               type == Metrics::MetricsValue::MV_Utf16String;
    }
};

using Pair = std::pair<Value, Value>;
using Pairs = std::vector<Pair>;

Pairs PairsOf(const Metrics::NameValueList& list);

/// The form for names and for texts that are read by the rule for attribute values: numbers as
/// decimal text, apostrophes taken off, double quotes put on where needed.
std::u16string TextOf(const Value& value);

/// The text as it is. Throws `Raised` for what is no text.
std::u16string PlainTextOf(const Value& value);

/// 0 for everything but an integer.
int64 IntegerOf(const Value& value);

/// What is done with a value of a kind that is not known.
enum class UnknownKind { IsZero, IsAnError };

/// The log literal of a value.
Node LiteralOf(const Value& value, UnknownKind unknownKind);

/// The exception that a broken invariant of the library raises.
Raised LogicError(std::string file, int line, std::string text, uint32 code);

bool StartsWith(std::u16string_view text, std::u16string_view prefix);

std::u16string Decimal(int64 value);
std::u16string UnsignedDecimal(uint64 value);
std::u16string LowerHexadecimal(uint64 value);

}  // namespace model
