#pragma once

#include <chrono>
#include <cstdint>
#include <httplib.h>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace packagesearch {

/// The parameters of a request, which are anything until they are checked. Every operation throws
/// `HttpFailure` (400) for what is not as it should be.
class RequestParameters {
public:
    /// Only these names, each once at the most, with plain text of a sensible length. The request
    /// must outlive the object.
    RequestParameters(const httplib::Request& request,
                      std::initializer_list<std::string_view> names);

    /// Empty when it is not there.
    std::string Text(const std::string& name) const;

    /// Not there, or a decimal number in these limits.
    std::optional<std::int64_t> Number(const std::string& name,
                                       std::int64_t least,
                                       std::int64_t most) const;

private:
    const httplib::Params& m_parameters;
};

/// How long the client wants to wait, but not longer than told.
std::chrono::milliseconds ReadTimeout(const httplib::Request& request,
                                      std::chrono::milliseconds longest);

/// The lines of the body that are not empty: one to `most`, of plain text.
std::vector<std::string> ReadBodyLines(const httplib::Request& request, std::size_t most);

/// The name of the parameter that `ReadTimeout` reads.
inline constexpr const char* deadlineParameter = "deadline-ms";

}  // namespace packagesearch
