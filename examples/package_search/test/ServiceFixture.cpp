#include "ServiceFixture.h"

#include <cmath>
#include <cstdint>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <gmock/gmock.h>

namespace packagesearch {

namespace {

constexpr std::chrono::seconds patience{120};

std::int64_t Milliseconds(double seconds) {
    return std::llround(seconds * 1000);
}

struct Sums {
    std::int64_t memory = 0;
    std::int64_t cpu = 0;
    std::map<std::uint64_t, std::int64_t> milliseconds;  // what threads lack, by thread
};

void Add(const LogReport& report, const LoggedActivity& activity, Sums& sums) {
    sums.memory += activity.figures.allocatedExclusive;
    sums.cpu += activity.figures.cpuExclusive;
    sums.milliseconds[activity.threadId] += Milliseconds(activity.exclusive);
    for (const std::size_t index : activity.children) {
        const LoggedActivity& child = report.activities[index];
        if (child.name == "http-request") {
            continue;  // in another process its figures would not be here either
        }
        if (child.threadId != activity.threadId) {
            sums.milliseconds[child.threadId] -= Milliseconds(child.elapsed);
        }
        Add(report, child, sums);
    }
}

void ExpectThatFiguresAddUp(const LogReport& report, const LoggedActivity& top) {
    Sums sums;
    sums.milliseconds[top.threadId] -= Milliseconds(top.elapsed);
    Add(report, top, sums);

    EXPECT_EQ(sums.memory, top.figures.allocated) << top.description;
    EXPECT_EQ(sums.cpu, top.figures.cpu) << top.description;
    for (const auto& [thread, difference] : sums.milliseconds) {
        EXPECT_EQ(difference, 0) << top.description << " on thread " << thread;
    }
}

}  // namespace

Instance::Instance(const PackageDatabase& database, HttpOptions options, const std::string& peerUrl)
    : m_peer(peerUrl.empty() ? std::nullopt : std::optional<PeerClient>(peerUrl)),
      m_queries(database, 2),
      m_routes(m_queries, m_peer ? &*m_peer : nullptr),
      m_http(std::move(options), m_routes) {}

ServiceTest::ServiceTest()
    : m_folder(std::filesystem::temp_directory_path() /
               ("package-search-service-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(m_folder);
    m_run = std::make_unique<TracedRun>(m_folder / "service.log");
    LoadPackages(SAMPLE_STATUS_FILE, m_sample);
}

ServiceTest::~ServiceTest() {
    m_instances.clear();
    m_run.reset();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

HttpOptions ServiceTest::PatientOptions() {
    HttpOptions options;
    options.deadline = patience;
    options.slowAfter = patience;
    return options;
}

Instance& ServiceTest::Start(HttpOptions options,
                             const std::string& peerUrl,
                             const PackageDatabase* database) {
    m_instances.push_back(std::make_unique<Instance>(
        database == nullptr ? m_sample : *database, std::move(options), peerUrl));
    return *m_instances.back();
}

LogReport ServiceTest::EndAndRead() {
    m_instances.clear();
    m_scopes = static_cast<std::size_t>(m_run->ScopesTraced());
    m_run.reset();
    return ReadLogs({m_folder / "service.log"});
}

std::vector<const LoggedActivity*> ServiceTest::Requests(const LogReport& report) {
    std::vector<const LoggedActivity*> requests;
    for (const LoggedActivity& activity : report.activities) {
        if (activity.name == "http-request") {
            requests.push_back(&activity);
        }
    }
    return requests;
}

const LoggedActivity& ServiceTest::RequestFor(const LogReport& report, const std::string& path) {
    static const LoggedActivity none;
    for (const LoggedActivity* request : Requests(report)) {
        if (request->description == path) {
            return *request;
        }
    }
    ADD_FAILURE() << "the log holds no request '" << path << "'";
    return none;
}

std::vector<std::string> ServiceTest::Parts(const LogReport& report,
                                            const LoggedActivity& activity) {
    std::vector<std::string> names;
    for (const std::size_t child : activity.children) {
        names.push_back(report.activities[child].name);
    }
    return names;
}

void ServiceTest::ExpectWholeLog(const LogReport& report) const {
    EXPECT_EQ(report.beginLines, m_scopes);
    EXPECT_EQ(report.endLines, m_scopes);
    EXPECT_EQ(report.activities.size(), m_scopes);
    EXPECT_EQ(report.unreadableLines, 0U);
    for (const LoggedActivity* request : Requests(report)) {
        ExpectThatFiguresAddUp(report, *request);
    }
}

httplib::Result Ask(const Instance& instance,
                    const std::string& path,
                    const httplib::Headers& headers) {
    httplib::Client client("127.0.0.1", instance.Port());
    client.set_connection_timeout(patience);
    client.set_read_timeout(patience);
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
