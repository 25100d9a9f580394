#include "RequestParameters.h"

#include "HttpFailure.h"
#include "PlainText.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <system_error>

namespace packagesearch {

namespace {

constexpr std::size_t longestValue = 200;

std::int64_t ReadNumber(const std::string& name,
                        const std::string& text,
                        std::int64_t least,
                        std::int64_t most) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most) {
        throw BadRequest("'" + name + "' must be a number from " + std::to_string(least) + " to " +
                         std::to_string(most));
    }
    return number;
}

}  // namespace

RequestParameters::RequestParameters(const httplib::Request& request,
                                     std::initializer_list<std::string_view> names)
    : m_parameters(request.params) {
    for (const auto& [name, value] : m_parameters) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            throw BadRequest(IsPlainText(name, longestValue)
                                 ? "there is no parameter '" + name + "' here"
                                 : "a parameter's name is no plain text");
        }
        if (m_parameters.count(name) != 1) {
            throw BadRequest("'" + name + "' is there more than once");
        }
        if (!IsPlainText(value, longestValue)) {
            throw BadRequest("'" + name + "' must be UTF-8 text without control characters, of " +
                             std::to_string(longestValue) + " bytes at the most");
        }
    }
}

std::string RequestParameters::Text(const std::string& name) const {
    const auto place = m_parameters.find(name);
    return place == m_parameters.end() ? std::string() : place->second;
}

std::optional<std::int64_t> RequestParameters::Number(const std::string& name,
                                                      std::int64_t least,
                                                      std::int64_t most) const {
    const auto place = m_parameters.find(name);
    if (place == m_parameters.end()) {
        return std::nullopt;
    }
    return ReadNumber(name, place->second, least, most);
}

std::chrono::milliseconds ReadTimeout(const httplib::Request& request,
                                      std::chrono::milliseconds longest) {
    constexpr std::int64_t anHour = 3'600'000;
    const auto place = request.params.find(deadlineParameter);
    if (place == request.params.end()) {
        return longest;
    }
    const std::chrono::milliseconds wanted(ReadNumber(deadlineParameter, place->second, 1, anHour));
    return std::min(wanted, longest);
}

std::vector<std::string> ReadBodyLines(const httplib::Request& request, std::size_t most) {
    std::vector<std::string> lines;
    std::istringstream body(request.body);
    for (std::string line; std::getline(body, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty()) {
            continue;
        }
        if (!IsPlainText(line, longestValue)) {
            throw BadRequest(
                "a line of the body must be UTF-8 text without control characters, of " +
                std::to_string(longestValue) + " bytes at the most");
        }
        lines.push_back(std::move(line));
    }
    if (lines.empty() || lines.size() > most) {
        throw BadRequest("the body must have 1 to " + std::to_string(most) + " lines");
    }
    return lines;
}

}  // namespace packagesearch
