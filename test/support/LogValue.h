#pragma once

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <initializer_list>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarn::test {

/// A value of a log event as text that can be compared: names in an object are sorted, texts are
/// in quotes, and doubles never look like integers ("5.0"), so that a literal of the wrong kind is
/// seen. A value; what a test expects converts to it.
class LogValue {
public:
    using Field = std::pair<std::string, LogValue>;

    // NOLINTBEGIN(google-explicit-constructor): expectations stand for themselves.
    LogValue(const char* text);
    LogValue(const std::string& text);
    LogValue(const TString& text);
    LogValue(double value);

    template <class T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
    LogValue(T value) : m_text(value ? "true" : "false") {}

    template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    LogValue(T value) : m_text(std::to_string(value)) {}

    // NOLINTEND(google-explicit-constructor)

    static LogValue Object(std::vector<Field> fields);
    static LogValue Array(const std::vector<LogValue>& items);

    /// A null pointer reads as "missing", a double in fixed notation as "fixed" and the number.
    static LogValue Of(const TLog::Value* value);

    const std::string& Text() const { return m_text; }

    friend bool operator==(const LogValue& a, const LogValue& b) { return a.m_text == b.m_text; }

    friend void PrintTo(const LogValue& value, std::ostream* out);

private:
    struct Verbatim {};

    LogValue(Verbatim, std::string text) : m_text(std::move(text)) {}

    std::string m_text;
};

}  // namespace tarn::test
