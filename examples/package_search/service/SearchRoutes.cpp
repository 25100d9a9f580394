#include "SearchRoutes.h"

#include "HttpFailure.h"
#include "PlainText.h"
#include "RequestParameters.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

namespace packagesearch {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t mostQueriesAtOnce = 20;
constexpr std::size_t longestName = 200;

std::string ToText(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json ToJson(const Query& query, const QueryResult& result) {
    return {{"query", query.Text()}, {"columns", result.columns}, {"rows", result.rows}};
}

// The rest of a path that begins with a folder's name.
std::optional<std::string> NameIn(const std::string& folder, const std::string& path) {
    if (path.rfind(folder, 0) != 0 || path.size() == folder.size()) {
        return std::nullopt;
    }
    std::string name = path.substr(folder.size());
    if (!IsPlainText(name, longestName)) {
        throw BadRequest("the path is no plain text, or is too long");
    }
    return name;
}

Query ReadQuery(const std::string& text) {
    try {
        return ParseQuery(text);
    } catch (const QueryError& problem) {
        throw BadRequest(problem.what());
    }
}

void RequireMethod(const httplib::Request& request, const std::string& method) {
    if (request.method != method && !(method == "GET" && request.method == "HEAD")) {
        throw HttpFailure(405, "method-not-allowed", "only " + method + " is possible here");
    }
}

}  // namespace

std::string SearchRoutes::Answer(const httplib::Request& request,
                                 const RequestAttributes& attributes,
                                 const WorkLimits& limits) const {
    if (request.path == "/health") {
        RequireMethod(request, "GET");
        return ToText({{"status", "ok"}});
    }
    if (request.path == "/queries") {
        RequireMethod(request, "POST");
        return AnswerQueries(request, limits);
    }
    if (const auto kind = NameIn("/queries/", request.path)) {
        RequireMethod(request, "GET");
        return AnswerQuery(request, *kind, limits);
    }
    if (const auto name = NameIn("/packages/", request.path)) {
        RequireMethod(request, "GET");
        return AnswerPackage(request, *name, attributes, limits);
    }
    throw NotFound("there is nothing at this path");
}

std::string SearchRoutes::AnswerQuery(const httplib::Request& request,
                                      const std::string& kind,
                                      const WorkLimits& limits) const {
    const RequestParameters parameters(request, {"argument", deadlineParameter});
    const Query query = ReadQuery(kind + " " + parameters.Text("argument"));
    return ToText(ToJson(query, m_queries.Start(query, limits).GetBefore(limits.deadline)));
}

std::string SearchRoutes::AnswerQueries(const httplib::Request& request,
                                        const WorkLimits& limits) const {
    std::vector<Query> queries;
    for (const std::string& line : ReadBodyLines(request, mostQueriesAtOnce)) {
        queries.push_back(ReadQuery(line));
    }
    std::vector<Pending<QueryResult>> pending;
    for (const Query& query : queries) {
        pending.push_back(m_queries.Start(query, limits));
    }
    Json answers = Json::array();
    for (std::size_t index = 0; index < queries.size(); ++index) {
        answers.push_back(ToJson(queries[index], pending[index].GetBefore(limits.deadline)));
    }
    return ToText({{"answers", std::move(answers)}});
}

std::string SearchRoutes::AnswerPackage(const httplib::Request& request,
                                        const std::string& name,
                                        const RequestAttributes& attributes,
                                        const WorkLimits& limits) const {
    const RequestParameters parameters(request, {deadlineParameter});
    const Query query{"show", name};
    // A worker and the peer are busy with it at the same time.
    Pending<QueryResult> known = m_queries.Start(query, limits);
    Json dependents;
    if (m_peer != nullptr) {
        dependents = m_peer->Dependents(name, attributes, limits);
    }
    const QueryResult result = known.GetBefore(limits.deadline);
    if (result.rows.empty()) {
        throw NotFound("there is no package '" + name + "'");
    }
    return ToText({{"columns", result.columns},
                   {"rows", result.rows},
                   {"dependents", std::move(dependents)}});
}

}  // namespace packagesearch
