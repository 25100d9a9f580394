#include "ServiceFixture.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <gmock/gmock.h>

namespace packagesearch {

namespace {

constexpr std::chrono::seconds timeout{120};

}  // namespace

Instance::Instance(const PackageDatabase& database, HttpOptions options, const std::string& peerUrl)
    : m_peer(peerUrl.empty() ? std::nullopt : std::optional<PeerClient>(peerUrl)),
      m_queries(database, 2),
      m_routes(m_queries, m_peer ? &*m_peer : nullptr),
      m_http(std::move(options), m_routes) {}

ServiceTest::ServiceTest()
    : m_folder(std::filesystem::temp_directory_path() /
               ("package-search-service-" + std::to_string(getpid()))),
      m_log(m_folder / "service.log") {
    std::filesystem::create_directories(m_folder);
    m_run = std::make_unique<TracedRun>(m_log);
    LoadPackages(SAMPLE_STATUS_FILE, m_sample);
}

ServiceTest::~ServiceTest() {
    m_instances.clear();
    m_run.reset();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

HttpOptions ServiceTest::OptionsWithLongTimeouts() {
    HttpOptions options;
    options.deadline = timeout;
    options.slowAfter = timeout;
    return options;
}

Instance& ServiceTest::Start(HttpOptions options,
                             const std::string& peerUrl,
                             const PackageDatabase* database) {
    m_instances.push_back(std::make_unique<Instance>(
        database == nullptr ? m_sample : *database, std::move(options), peerUrl));
    return *m_instances.back();
}

LoggedTrees ServiceTest::EndAndRead() {
    m_instances.clear();
    m_scopes = static_cast<std::size_t>(m_run->ScopesTraced());
    m_run.reset();
    return ReadLog(m_log);
}

std::vector<const LoggedActivity*> ServiceTest::Requests(const LoggedTrees& log) {
    std::vector<const LoggedActivity*> requests;
    for (const LoggedActivity& activity : log.activities) {
        if (activity.name == "http-request") {
            requests.push_back(&activity);
        }
    }
    return requests;
}

const LoggedActivity& ServiceTest::RequestFor(const LoggedTrees& log, const std::string& path) {
    static const LoggedActivity none;
    for (const LoggedActivity* request : Requests(log)) {
        if (request->description == path) {
            return *request;
        }
    }
    ADD_FAILURE() << "the log holds no request '" << path << "'";
    return none;
}

std::vector<std::string> ServiceTest::Parts(const LoggedTrees& log,
                                            const LoggedActivity& activity) {
    std::vector<std::string> names;
    for (const std::size_t child : activity.children) {
        names.push_back(log.activities[child].name);
    }
    return names;
}

void ServiceTest::ExpectWholeLog(const LoggedTrees& log) const {
    EXPECT_EQ(log.activities.size(), m_scopes);
    EXPECT_EQ(WhatIsWrongWith(m_log), "");
}

httplib::Result Ask(const Instance& instance,
                    const std::string& path,
                    const httplib::Headers& headers) {
    httplib::Client client("127.0.0.1", instance.Port());
    client.set_connection_timeout(timeout);
    client.set_read_timeout(timeout);
    return client.Get(path, headers);
}

std::string Verdict(const httplib::Result& result) {
    if (!result) {
        return "no answer: " + httplib::to_string(result.error());
    }
    const nlohmann::json body = nlohmann::json::parse(result->body, nullptr, false);
    std::string verdict = std::to_string(result->status);
    if (body.is_discarded()) {
        verdict += " with no JSON";
    } else if (body.contains("error")) {
        EXPECT_EQ(body["error"]["status"], result->status);
        EXPECT_NE(body["error"]["message"], "");
        verdict += " " + body["error"]["reason"].get<std::string>();
    }
    return verdict;
}

std::string TangledStatus(int packages) {
    std::string names;
    for (int package = 0; package < packages; ++package) {
        names.append(package == 0 ? "" : ", ").append("tangled").append(std::to_string(package));
    }
    std::string status;
    for (int package = 0; package < packages; ++package) {
        status += "Package: tangled" + std::to_string(package) +
                  "\nStatus: install ok installed\nInstalled-Size: 1\nArchitecture: all\n"
                  "Version: 1\nDepends: " +
                  names + "\nDescription: part of a tangle\n\n";
    }
    return status;
}

}  // namespace packagesearch
