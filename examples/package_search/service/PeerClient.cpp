#include "PeerClient.h"

#include "ActivityNames.h"
#include "HttpFailure.h"
#include "RequestParameters.h"
#include "SlowStep.h"

#include "tarn/ActivityScope.h"
#include "tarn/Headers.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <utility>

namespace packagesearch {

namespace {

constexpr std::size_t largestAnswer = 4 << 20;

std::pair<std::string, int> ParseUrl(const std::string& url) {
    constexpr std::string_view scheme = "http://";
    const std::size_t colon = url.rfind(':');
    int port = 0;
    const char* const end = url.data() + url.size();
    const bool hasPort =
        url.rfind(scheme, 0) == 0 && colon != std::string::npos && colon > scheme.size() &&
        std::from_chars(url.data() + colon + 1, end, port) == std::from_chars_result{end, {}};
    if (!hasPort || port < 1 || port > 65535) {
        throw std::invalid_argument("'" + url + "' is no peer; it must read http://HOST:PORT");
    }
    return {url.substr(scheme.size(), colon - scheme.size()), port};
}

// What became of the call, apart from the answer itself.
void RequireAnswer(const httplib::Result& result, const Deadline& deadline) {
    if (!result) {
        if (deadline.HasPassed()) {
            throw HttpFailure(504, "peer-timeout", "the peer did not answer in time");
        }
        throw HttpFailure(502,
                          "peer-unavailable",
                          "the peer cannot be asked: " + httplib::to_string(result.error()));
    }
    switch (result->status) {
        case 200:
            return;
        case 503:
            throw HttpFailure(503, "peer-busy", "the peer is busy; try again");
        case 504:
            throw HttpFailure(504, "peer-timeout", "the peer did not get done in time");
        default:
            throw HttpFailure(502,
                              "peer-failed",
                              "the peer answered with status " + std::to_string(result->status));
    }
}

std::vector<std::string> ReadNames(const std::string& body) {
    constexpr const char* notAnAnswer = "the peer's answer is not what was asked for";
    const nlohmann::json answer = nlohmann::json::parse(body, nullptr, false);
    if (!answer.is_object() || !answer.contains("rows") || !answer["rows"].is_array()) {
        throw HttpFailure(502, "peer-answer", notAnAnswer);
    }
    std::vector<std::string> names;
    for (const nlohmann::json& row : answer["rows"]) {
        if (!row.is_array() || row.empty() || !row.front().is_string()) {
            throw HttpFailure(502, "peer-answer", notAnAnswer);
        }
        names.push_back(row.front().get<std::string>());
    }
    return names;
}

}  // namespace

PeerClient::PeerClient(const std::string& url) : m_url(url) {
    std::tie(m_host, m_port) = ParseUrl(url);
}

httplib::Result PeerClient::Get(const std::string& path,
                                const RequestAttributes& request,
                                const Deadline& deadline,
                                std::string& body) const {
    httplib::Headers headers;
    tarn::Inject(headers);
    const auto tell = [&headers](const char* name, const std::string& value) {
        if (!value.empty()) {
            headers.emplace(name, value);
        }
    };
    tell("X-User", request.user);
    tell("X-Session", request.sessionId);
    tell("X-Request-Id", request.requestId);

    httplib::Client client(m_host, m_port);
    // A timeout of 0 would be none at all.
    const auto timeout = std::max(deadline.Remaining(), std::chrono::milliseconds(1));
    client.set_connection_timeout(timeout);
    client.set_read_timeout(timeout);
    client.set_write_timeout(timeout);
    // The timeouts are for single reads; this is for a peer that sends a little now and then.
    const auto receive = [&](const char* data, std::size_t size) {
        body.append(data, size);
        return body.size() <= largestAnswer && !deadline.HasPassed();
    };
    return client.Get(path, headers, receive);
}

std::vector<std::string> PeerClient::Dependents(const std::string& package,
                                                const RequestAttributes& request,
                                                const WorkLimits& limits) const {
    tarn::ActivityScope scope(activity::callPeer, {{attribute::peer, m_url}});
    const SlowStep slow(scope, activity::callPeer, limits);
    const std::string path =
        "/queries/rdepends?" +
        httplib::detail::params_to_query_str(
            {{"argument", package},
             {deadlineParameter,
              std::to_string(std::max<std::int64_t>(limits.deadline.Remaining().count(), 1))}});
    std::string body;
    const httplib::Result result = Get(path, request, limits.deadline, body);
    if (result) {
        scope.Add({{attribute::status, result->status}});
    }
    RequireAnswer(result, limits.deadline);
    return ReadNames(body);
}

}  // namespace packagesearch
