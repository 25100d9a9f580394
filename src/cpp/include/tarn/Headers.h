#pragma once

// Requests to and from other processes. An activity continues in the process that receives the
// headers, under the same root and with the sender as its caller:
//
//     tarn::Inject(request.headers);                                   // the client
//     const tarn::Scope serve(tarn::Extract(request.headers), "serve");  // the server
//
// The server may set whom and what the request is for, in each of its lines:
//
//     tarn::Extract(request.headers, {{"user", user}, {"req-desc", request.path}})
//
// Headers may be a map, a multimap or a sequence of names and values (cpp-httplib's
// `headers` and `Request` among them), the metadata of gRPC, or a function.

#include "tarn/Export.h"
#include "tarn/Trace.h"

#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {
namespace detail {

template <class T>
std::string_view HeaderText(const T& text) noexcept {
    if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        return text;
    } else {
        return {text.data(), text.size()};  // gRPC's references to texts
    }
}

inline char LowerCase(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

/// Names of headers are the same in upper and lower case.
inline bool IsSameHeader(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (LowerCase(a[i]) != LowerCase(b[i])) {
            return false;
        }
    }
    return true;
}

template <class T, class = void>
inline constexpr bool hasHeaders = false;

template <class T>
inline constexpr bool hasHeaders<T, std::void_t<decltype(std::declval<T&>().headers)>> = true;

template <class T, class = void>
inline constexpr bool hasAddMetadata = false;

template <class T>
inline constexpr bool
    hasAddMetadata<T,
                   std::void_t<decltype(std::declval<T&>().AddMetadata(
                       std::declval<const char*>(), std::declval<const char*>()))>> = true;

template <class T, class = void>
inline constexpr bool isHeaderTable = false;

template <class T>
inline constexpr bool isHeaderTable<T, std::void_t<typename T::key_type, typename T::mapped_type>> =
    true;

template <class T, class = void>
inline constexpr bool isHeaderRow = false;

template <class T>
inline constexpr bool isHeaderRow<T,
                                  std::void_t<typename T::value_type::first_type,
                                              decltype(std::declval<T&>().emplace_back(
                                                  std::declval<typename T::value_type>()))>> =
    !isHeaderTable<T>;

template <class T, class = void>
inline constexpr bool isHeaderRange = false;

template <class T>
inline constexpr bool
    isHeaderRange<T, std::void_t<decltype(HeaderText(std::declval<const T&>().begin()->second))>> =
        true;

/// Erases what an iterator refers to while it is advanced.
template <class Headers>
void EraseHeader(Headers& headers, std::string_view name) {
    for (auto header = headers.begin(); header != headers.end();) {
        if (IsSameHeader(HeaderText(header->first), name)) {
            header = headers.erase(header);
        } else {
            ++header;
        }
    }
}

/// In the place of what was there.
template <class Headers>
void SetHeader(Headers& headers, const char* name, std::string_view value) {
    if constexpr (std::is_invocable_v<Headers&, std::string_view, std::string_view>) {
        headers(std::string_view(name), value);
    } else if constexpr (hasAddMetadata<Headers>) {
        headers.AddMetadata(name, {value.data(), value.size()});
    } else if constexpr (isHeaderTable<Headers>) {
        EraseHeader(headers, name);
        headers.emplace(typename Headers::key_type(name),
                        typename Headers::mapped_type(value.data(), value.size()));
    } else if constexpr (isHeaderRow<Headers>) {
        using Header = typename Headers::value_type;
        EraseHeader(headers, name);
        headers.emplace_back(Header(typename Header::first_type(name),
                                    typename Header::second_type(value.data(), value.size())));
    } else if constexpr (hasHeaders<Headers>) {
        SetHeader(headers.headers, name, value);
    } else {
        static_assert(isAlwaysFalse<Headers>,
                      "tarn: give Inject a map of headers, or a function that takes a name and a "
                      "value");
    }
}

template <class Headers, class Take>
void ForEachValue(const Headers& headers, std::string_view name, Take&& take) {
    if constexpr (std::is_invocable_v<const Headers&, std::string_view>) {
        const auto& value = headers(name);
        if (const std::string_view text = HeaderText(value); !text.empty()) {
            take(text);
        }
    } else if constexpr (isHeaderRange<Headers>) {
        for (const auto& header : headers) {
            if (IsSameHeader(HeaderText(header.first), name)) {
                take(HeaderText(header.second));
            }
        }
    } else if constexpr (hasHeaders<const Headers>) {
        ForEachValue(headers.headers, name, std::forward<Take>(take));
    } else {
        static_assert(isAlwaysFalse<Headers>,
                      "tarn: give Extract a map of headers, or a function that returns the value "
                      "of a name");
    }
}

}  // namespace detail

#if defined(TARN_DISABLE)

inline namespace disabled {

template <class Headers>
constexpr void Inject(Headers&& /*headers*/) noexcept {}

template <class Headers>
Handoff Extract(const Headers& /*headers*/, Attributes /*request*/ = {}) noexcept {
    return {};
}

}  // namespace disabled

#else

inline namespace enabled {

/// See `Extract`.
class Sender {
public:
    template <class Headers>
    static Handoff Of(const Headers& headers, Attributes request) noexcept {
        return Handoff(abi::tarn_extract_request(
            [](const void* source, const char* name, abi::tarn_header_values* values) {
                detail::ForEachValue(
                    *static_cast<const Headers*>(source), name, [values](std::string_view value) {
                        abi::tarn_header_value(values, value.data(), value.size());
                    });
            },
            &headers,
            "",
            TARN_TO_NUL,
            request.First(),
            request.Count()));
    }
};

/// Writes headers that tell the receiver of a request the thread's current activity, and replaces
/// those of the same names: `corvala-trace-id`, `corvala-extra-depth` and `corvala-caller-id`, and
/// for other systems the W3C's `traceparent` and `tracestate`. None if nothing is current. A
/// function gets name and value of each as `std::string_view`. If setting a header throws, the rest
/// is left out.
template <class Headers>
void Inject(Headers&& headers) noexcept {
    using Target = std::remove_reference_t<Headers>;
    abi::tarn_inject(
        [](void* target, const char* name, const char* value, std::size_t length) {
            detail::SetHeader(*static_cast<Target*>(target), name, std::string_view(value, length));
        },
        const_cast<std::remove_const_t<Target>*>(&headers));
}

/// Whether an activity that continues a request whose `traceparent` has the sampled flag gets an
/// attribute "sampled" (true). Off by default; a session whose keep rules use the flag switches it
/// on. Any thread may call it; it affects later calls of `Extract`.
TARN_EXPORT void SetSampledAttributeEnabled(bool enabled) noexcept;

/// Reads who sent a request: a scope or an activity begun with the result continues the sender's
/// tree, as a separate request. Without headers, and with wrong ones, which are counted
/// (`ActivityTracer::GetRefusedHeaders`), it begins a tree. This system's headers take precedence
/// over the W3C's, of which version 00 is read. A function gets a name, and returns the value or an
/// empty text. `request` sets whom and what the request is for, in each of its lines: "user",
/// "req-desc" (a description), "rid" (an id), "sid" (a session), "site"; other names are left out.
template <class Headers>
Handoff Extract(const Headers& headers, Attributes request = {}) noexcept {
    return Sender::Of(headers, request);
}

}  // namespace enabled

#endif

}  // namespace tarn
