#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

namespace Metrics {

/// A value that is lent for the time of a call: texts stay where they are, and nothing is made of
/// them unless somebody wants the event. It is built from whatever a `MetricsValue` is built from,
/// and means the same. Like a `std::string_view` it must not outlive what it is made of.
class ValueView {
public:
    /// `Static` is a UTF-16 text that lives as long as the process, and is known by its address.
    /// `Digits` is an integer that is too large for `int64`, and means the text of its digits.
    enum class Kind : uint32 {
        Int64,
        Bool,
        Double,
        Utf8,
        Utf16,
        Wide,
        Static,
        Shared,
        Value,
        Digits
    };

    // Values stand for themselves in attribute lists, hence the implicit constructors below. Only
    // bool itself makes a bool: no pointer turns into one.
    // NOLINTBEGIN(google-explicit-constructor): see above

    template <class T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
    ValueView(T value) noexcept : m_kind(Kind::Bool),
                                  m_integer(value ? 1 : 0) {}

    template <class T, std::enable_if_t<isInteger<T>, int> = 0>
    ValueView(T value) noexcept
        : m_kind(ExceedsInt64(value) ? Kind::Digits : Kind::Int64),
          m_integer(static_cast<int64>(value)) {}

    /// Does not compile, see `MetricsValue`.
    template <class T, std::enable_if_t<isCharacter<T>, int> = 0>
    ValueView(T character) = delete;

    template <class T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
    ValueView(T value) noexcept : m_kind(Kind::Double),
                                  m_real(static_cast<double>(value)) {}

    /// UTF-8; a null pointer gives the empty text.
    ValueView(const char* text) noexcept
        : m_kind(Kind::Utf8),
          m_size(text != nullptr ? std::strlen(text) : 0),
          m_utf8(text != nullptr ? text : "") {}

    ValueView(const std::string& text) noexcept
        : m_kind(Kind::Utf8),
          m_size(text.size()),
          m_utf8(text.data()) {}

    /// UTF-16; a null pointer gives the empty text.
    ValueView(const char16_t* text) noexcept
        : m_kind(Kind::Utf16),
          m_size(text != nullptr ? std::char_traits<char16_t>::length(text) : 0),
          m_utf16(text != nullptr ? text : u"") {}

    /// Wide text in the platform's encoding.
    ValueView(const wchar_t* text) noexcept : m_kind(Kind::Wide), m_wide(text) {}

    ValueView(const TString& text) noexcept
        : m_kind(Kind::Shared),
          m_shared(&text.SharedCharacters()) {}

    ValueView(const MetricsValue& value) noexcept : m_kind(Kind::Value), m_value(&value) {}

    // NOLINTEND(google-explicit-constructor)

    /// UTF-8 that need not end in a NUL.
    static ValueView OfUtf8(std::string_view text) noexcept {
        ValueView view(0);
        view.m_kind = Kind::Utf8;
        view.m_size = text.size();
        view.m_utf8 = text.data();
        return view;
    }

    /// UTF-16 that need not end in a NUL.
    static ValueView OfUtf16(std::u16string_view text) noexcept {
        ValueView view(0);
        view.m_kind = Kind::Utf16;
        view.m_size = text.size();
        view.m_utf16 = text.data();
        return view;
    }

    static ValueView OfStatic(const std::u16string& text) noexcept {
        ValueView view(0);
        view.m_kind = Kind::Static;
        view.m_static = &text;
        return view;
    }

    Kind GetKind() const noexcept { return m_kind; }

    /// Of `Int64` and `Bool`.
    int64 GetInteger() const noexcept { return m_integer; }

    /// Of `Digits`.
    uint64 GetLargeInteger() const noexcept { return static_cast<uint64>(m_integer); }

    double GetReal() const noexcept { return m_real; }

    std::string_view GetUtf8() const noexcept { return {m_utf8, m_size}; }

    std::u16string_view GetUtf16() const noexcept { return {m_utf16, m_size}; }

    const wchar_t* GetWide() const noexcept { return m_wide; }

    const std::u16string& GetStatic() const noexcept { return *m_static; }

    /// Null for the empty text.
    const TString::Characters& GetShared() const noexcept { return *m_shared; }

    const MetricsValue& GetValue() const noexcept { return *m_value; }

    /// A value that owns what it holds. Throws `std::bad_alloc`.
    MetricsValue ToValue() const {
        switch (m_kind) {
            case Kind::Int64:
                return m_integer;
            case Kind::Bool:
                return m_integer != 0;
            case Kind::Double:
                return m_real;
            case Kind::Utf8:
                return std::string(GetUtf8());
            case Kind::Utf16:
                return TString(GetUtf16());
            case Kind::Wide:
                return m_wide;
            case Kind::Static:
                return TString(TString::Characters(TString::Characters(), m_static));
            case Kind::Shared:
                return TString(*m_shared);
            case Kind::Digits:
                return GetLargeInteger();
            case Kind::Value:
                break;
        }
        return *m_value;
    }

private:
    Kind m_kind = Kind::Int64;
    std::size_t m_size = 0;

    union {
        int64 m_integer;
        double m_real;
        const char* m_utf8;
        const char16_t* m_utf16;
        const wchar_t* m_wide;
        const std::u16string* m_static;
        const TString::Characters* m_shared;
        const MetricsValue* m_value;
    };
};

/// A name and a value, lent.
struct PairView {
    ValueView name;
    ValueView value;

    PairView(ValueView pairName, ValueView pairValue) noexcept : name(pairName), value(pairValue) {}

    // NOLINTNEXTLINE(google-explicit-constructor): a pair stands for itself in a list
    PairView(const NameValuePair& pair) noexcept : name(pair.first), value(pair.second) {}
};

/// Pairs in a row, lent: views, or pairs that own what they hold.
class PairSpan {
public:
    /// Goes along the pairs. What it refers to is a view, whatever lies there, and holds until it
    /// goes on.
    class Iterator {
    public:
        Iterator(const std::byte* place, std::size_t step) noexcept
            : m_place(place),
              m_step(step) {}

        const PairView& operator*() noexcept {
            return m_step == sizeof(PairView)
                       ? *reinterpret_cast<const PairView*>(m_place)
                       : *new (&m_made) PairView(*reinterpret_cast<const NameValuePair*>(m_place));
        }

        Iterator& operator++() noexcept {
            m_place += m_step;
            return *this;
        }

        bool operator!=(const Iterator& other) const noexcept { return m_place != other.m_place; }

    private:
        const std::byte* m_place;
        std::size_t m_step;

        union {
            PairView m_made;
        };
    };

    PairSpan() noexcept = default;

    PairSpan(const PairView* first, std::size_t size) noexcept
        : m_first(reinterpret_cast<const std::byte*>(first)),
          m_size(size) {}

    // NOLINTBEGIN(google-explicit-constructor): a list is given where pairs are lent

    PairSpan(std::initializer_list<PairView> pairs) noexcept
        : PairSpan(pairs.begin(), pairs.size()) {}

    PairSpan(const NameValueList& pairs) noexcept
        : m_first(reinterpret_cast<const std::byte*>(pairs.data())),
          m_size(pairs.size()),
          m_step(sizeof(NameValuePair)) {}

    // NOLINTEND(google-explicit-constructor)

    std::size_t Size() const noexcept { return m_size; }

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    Iterator begin() const noexcept { return {m_first, m_step}; }

    Iterator end() const noexcept { return {m_first + m_size * m_step, m_step}; }

    // NOLINTEND(readability-identifier-naming)

    /// Calls `action` with one pair after the other as long as that says true; whether it always
    /// did. Goes along views without asking at each what lies there.
    template <class Action>
    bool ForEachWhile(const Action& action) const {
        if (m_step == sizeof(PairView)) {
            const auto* pair = reinterpret_cast<const PairView*>(m_first);
            const auto* const end = pair + m_size;
            while (pair != end && action(*pair)) {
                ++pair;
            }
            return pair == end;
        }
        for (const PairView& pair : *this) {
            if (!action(pair)) {
                return false;
            }
        }
        return true;
    }

    /// Pairs that own what they hold. Throws `std::bad_alloc`.
    NameValueList ToList() const {
        NameValueList list;
        list.reserve(m_size);
        for (const PairView& pair : *this) {
            list.emplace_back(pair.name.ToValue(), pair.value.ToValue());
        }
        return list;
    }

private:
    static_assert(sizeof(PairView) != sizeof(NameValuePair), "The step says which of them it is.");

    const std::byte* m_first = nullptr;
    std::size_t m_size = 0;
    std::size_t m_step = sizeof(PairView);
};

}  // namespace Metrics
