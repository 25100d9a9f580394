#pragma once

// Attributes of more types than tarn/Trace.h knows, for programs that have them: times and
// durations, `std::optional`, paths, ranges, error codes and exceptions.

#include "tarn/Attribute.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace tarn {
namespace detail {

/// How many elements of a range are written.
inline constexpr std::size_t elementsWritten = 100;

template <class T, class = void>
inline constexpr bool isRange = false;

template <class T>
inline constexpr bool isRange<T,
                              std::void_t<decltype(std::begin(std::declval<const T&>())),
                                          decltype(std::end(std::declval<const T&>()))>> =
    !isText<T> && !std::is_same_v<T, std::filesystem::path>;

template <class T>
void AppendText(std::string& text, const T& value);

/// Appends what an attribute of the value would have.
template <class T>
void AppendScalar(std::string& text, const T& value) {
    abi::tarn_attribute attribute{};
    SetValue(attribute, value);
    switch (attribute.type) {
        case abi::TARN_INTEGER:
            text += std::to_string(attribute.value.integer);
            break;
        case abi::TARN_BOOLEAN:
            text += attribute.value.integer != 0 ? "true" : "false";
            break;
        case abi::TARN_REAL: {
            char number[32];
            const int length = std::snprintf(number, sizeof number, "%.15g", attribute.value.real);
            text.append(number, static_cast<std::size_t>(length));
            break;
        }
        case abi::TARN_TEXT:
            text.append(attribute.value.text, attribute.more.length);
            break;
        default:
            text += std::to_string(attribute.value.natural);
            break;
    }
}

template <class T>
void AppendText(std::string& text, const T& value) {
    if constexpr (std::is_same_v<T, char>) {
        text += value;
    } else if constexpr (hasToAttribute<T>) {
        AppendText(text, ToAttribute<T>()(value));
    } else {
        AppendScalar(text, value);
    }
}

}  // namespace detail

/// Seconds.
template <class Number, class Period>
struct ToAttribute<std::chrono::duration<Number, Period>> {
    double operator()(const std::chrono::duration<Number, Period>& duration) const {
        return std::chrono::duration<double>(duration).count();
    }
};

/// UTC, as the log writes times: 2026-11-22T05:30:00.000000Z.
template <class Duration>
struct ToAttribute<std::chrono::time_point<std::chrono::system_clock, Duration>> {
    std::string operator()(
        const std::chrono::time_point<std::chrono::system_clock, Duration>& time) const {
        using Seconds = std::chrono::seconds;
        const auto seconds = std::chrono::floor<Seconds>(time);
        const auto micros = std::chrono::floor<std::chrono::microseconds>(time - seconds);
        const auto count = static_cast<std::time_t>(seconds.time_since_epoch().count());
        std::tm parts{};
        char text[64];
        if (gmtime_r(&count, &parts) == nullptr) {
            return "-";
        }
        const int length = std::snprintf(text,
                                         sizeof text,
                                         "%04lld-%02d-%02dT%02d:%02d:%02d.%06lldZ",
                                         static_cast<long long>(parts.tm_year) + 1900,
                                         parts.tm_mon + 1,
                                         parts.tm_mday,
                                         parts.tm_hour,
                                         parts.tm_min,
                                         parts.tm_sec,
                                         static_cast<long long>(micros.count()));
        return {text, static_cast<std::size_t>(length)};
    }
};

/// The value as text; "-" if there is none.
template <class T>
struct ToAttribute<std::optional<T>> {
    std::string operator()(const std::optional<T>& value) const {
        std::string text;
        if (value.has_value()) {
            detail::AppendText(text, *value);
        } else {
            text = "-";
        }
        return text;
    }
};

template <>
struct ToAttribute<std::filesystem::path> {
    std::string operator()(const std::filesystem::path& path) const { return path.string(); }
};

/// "generic:2 No such file or directory"; "ok" if there is no error.
template <>
struct ToAttribute<std::error_code> {
    std::string operator()(const std::error_code& error) const {
        if (!error) {
            return "ok";
        }
        return std::string(error.category().name()) + ":" + std::to_string(error.value()) + " " +
               error.message();
    }
};

/// What the exception says; "-" if there is none.
template <>
struct ToAttribute<std::exception_ptr> {
    std::string operator()(const std::exception_ptr& exception) const {
        if (exception == nullptr) {
            return "-";
        }
#if defined(__cpp_exceptions)
        try {
            std::rethrow_exception(exception);
        } catch (const std::exception& known) {
            return known.what();
        } catch (...) {
        }
#endif
        return "(unknown exception)";
    }
};

/// "[1, 2, 3]", of the first hundred elements.
template <class T>
struct ToAttribute<T, std::enable_if_t<detail::isRange<T>>> {
    std::string operator()(const T& range) const {
        std::string text = "[";
        std::size_t count = 0;
        for (const auto& element : range) {
            if (count != 0) {
                text += ", ";
            }
            if (count == detail::elementsWritten) {
                text += "...";
                break;
            }
            detail::AppendText(text, static_cast<const std::decay_t<decltype(element)>&>(element));
            ++count;
        }
        return text + "]";
    }
};

}  // namespace tarn
