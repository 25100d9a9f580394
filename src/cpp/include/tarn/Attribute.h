#pragma once

#include "tarn/tarn.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <type_traits>

namespace tarn {

/// Makes attributes of a program's own types. Specialise it, and let the call operator return what
/// an attribute can be made of: a number, a `bool`, a `std::string_view` into the value, or a
/// `std::string`, which is made only if somebody wants it.
///
///     template <>
///     struct tarn::ToAttribute<Money> {
///         std::string operator()(const Money& money) const { return money.Text(); }
///     };
///
/// An exception that it throws while a text is made costs that text only.
template <class T, class Enable = void>
struct ToAttribute;

namespace detail {

template <class T, class = void>
inline constexpr bool hasToAttribute = false;

template <class T>
inline constexpr bool
    hasToAttribute<T, std::void_t<decltype(ToAttribute<T>()(std::declval<const T&>()))>> = true;

template <class T>
inline constexpr bool isText = std::is_convertible_v<const T&, std::string_view>;

/// A view of something else, or a value that needs no memory.
template <class T>
inline constexpr bool isCheap = std::is_scalar_v<T> || std::is_same_v<T, std::string_view>;

template <class T>
inline constexpr bool isAlwaysFalse = false;

template <class T>
inline constexpr bool isCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                                    std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;

template <class T>
inline constexpr bool isByteText =
    std::is_same_v<T, const unsigned char*> || std::is_same_v<T, unsigned char*> ||
    std::is_same_v<T, const signed char*> || std::is_same_v<T, signed char*>;

template <class Result>
std::string_view ViewOf(const Result& text) noexcept {
    static_assert(isText<Result>, "tarn: ToAttribute returns a number, a bool or a text");
    if constexpr (isText<Result>) {  // or it would be told twice
        return text;
    } else {
        return {};
    }
}

/// Called by the library when it wants the text.
template <class T>
void ConvertLate(const void* object, abi::tarn_receiver* receiver) {
#if defined(__cpp_exceptions)
    try {
#endif
        const auto& result = ToAttribute<T>()(*static_cast<const T*>(object));
        const std::string_view text = ViewOf(result);
        abi::tarn_receive(receiver, text.data(), text.size());
#if defined(__cpp_exceptions)
    } catch (...) {
        static constexpr std::string_view failed = "(ToAttribute threw an exception)";
        abi::tarn_receive(receiver, failed.data(), failed.size());
    }
#endif
}

inline void SetText(abi::tarn_attribute& attribute, std::string_view text) noexcept {
    attribute.type = abi::TARN_TEXT;
    attribute.value.text = text.data();
    attribute.more.length = text.size();
}

template <class T>
void SetValue(abi::tarn_attribute& attribute, const T& value);

template <class T>
void SetInteger(abi::tarn_attribute& attribute, T value) noexcept {
    static_assert(sizeof(T) <= sizeof(std::int64_t),
                  "tarn: an integer of an attribute has 64 bits at the most; give a text instead");
    if constexpr (std::is_same_v<T, bool>) {
        attribute.type = abi::TARN_BOOLEAN;
        attribute.value.integer = value ? 1 : 0;
    } else if constexpr (isCharacter<T>) {
        attribute.type = abi::TARN_CHARACTER;
        attribute.value.natural =
            static_cast<std::uint64_t>(static_cast<std::make_unsigned_t<T>>(value));
    } else if constexpr (std::is_signed_v<T>) {
        attribute.type = abi::TARN_INTEGER;
        attribute.value.integer = value;
    } else {
        attribute.type = abi::TARN_NATURAL;
        attribute.value.natural = value;
    }
}

/// What a program says of a type comes first, so that it may say something of an enumeration, too.
template <class T>
void SetOwnValue(abi::tarn_attribute& attribute, const T& value) {
    using Result = std::decay_t<decltype(ToAttribute<T>()(value))>;
    if constexpr (isCheap<Result>) {
        SetValue(attribute, ToAttribute<T>()(value));
    } else {
        attribute.type = abi::TARN_CONVERTED;
        attribute.value.object = &value;
        attribute.more.convert = &ConvertLate<T>;
    }
}

template <class T>
void SetValue(abi::tarn_attribute& attribute, const T& value) {
    using Decayed = std::decay_t<const T>;
    if constexpr (hasToAttribute<T>) {
        SetOwnValue(attribute, value);
    } else if constexpr (std::is_integral_v<T>) {
        SetInteger(attribute, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        attribute.type = abi::TARN_REAL;
        attribute.value.real = static_cast<double>(value);
    } else if constexpr (std::is_enum_v<T>) {
        using Number = std::underlying_type_t<T>;
        // An enumeration of characters or truth values is one of numbers.
        if constexpr (std::is_signed_v<Number>) {
            SetInteger(attribute, static_cast<std::int64_t>(static_cast<Number>(value)));
        } else {
            SetInteger(attribute, static_cast<std::uint64_t>(static_cast<Number>(value)));
        }
    } else if constexpr (std::is_null_pointer_v<T>) {
        SetText(attribute, {});
    } else if constexpr (std::is_pointer_v<T> && isText<T>) {
        SetText(attribute, value != nullptr ? std::string_view(value) : std::string_view());
    } else if constexpr (isText<T>) {
        SetText(attribute, value);
    } else if constexpr (isByteText<Decayed>) {
        const void* const bytes = value;
        SetValue(attribute, static_cast<const char*>(bytes));
    } else {
        static_assert(
            isAlwaysFalse<T>,
            "tarn: an attribute cannot be made of this type. tarn/Values.h knows those of "
            "the standard library; specialise tarn::ToAttribute for one of your own");
    }
}

}  // namespace detail

/// A name and a value, lent, so it is made in the call that uses it. The value is a text, a number,
/// character, `bool` or enumeration, or of a type that `ToAttribute` knows.
class Attribute : public abi::tarn_attribute {
public:
    template <class T>
    Attribute(std::string_view name, const T& source)
        : abi::tarn_attribute{name.data(), name.size(), {0}, {0}, abi::TARN_INTEGER} {
        detail::SetValue(*this, source);
    }
};

static_assert(sizeof(Attribute) == sizeof(abi::tarn_attribute),
              "rows of them are passed on as such");

/// Attributes in a row, lent: `{{"path", path}, {"size", 17}}`.
class Attributes {
public:
    constexpr Attributes() noexcept = default;

    constexpr Attributes(const Attribute* first, std::size_t count) noexcept
        : m_first(first),
          m_count(count) {}

    // NOLINTNEXTLINE(google-explicit-constructor): braces stand for a list
    constexpr Attributes(std::initializer_list<Attribute> list) noexcept
        : Attributes(list.begin(), list.size()) {}

    const abi::tarn_attribute* First() const noexcept { return m_first; }

    std::size_t Count() const noexcept { return m_count; }

private:
    const Attribute* m_first = nullptr;
    std::size_t m_count = 0;
};

}  // namespace tarn
