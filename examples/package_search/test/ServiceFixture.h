#pragma once

#include "HttpService.h"
#include "LoggedTrees.h"
#include "PackageDatabase.h"
#include "PeerClient.h"
#include "QueryService.h"
#include "SearchRoutes.h"
#include "TracedRun.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace packagesearch {

/// One instance of the service in this process, on a free port.
class Instance {
public:
    Instance(const PackageDatabase& database, HttpOptions options, const std::string& peerUrl = {});

    int Port() const noexcept { return m_http.Port(); }

    std::string Url() const { return "http://127.0.0.1:" + std::to_string(Port()); }

private:
    std::optional<PeerClient> m_peer;
    QueryService m_queries;
    SearchRoutes m_routes;
    HttpService m_http;
};

/// Instances of the service, traced to a file of their own, which is read when all have ended.
class ServiceTest : public testing::Test {
protected:
    ServiceTest();
    ~ServiceTest() override;

    /// On the sample packages unless told otherwise, with time enough for slow machines.
    Instance& Start(HttpOptions options = OptionsWithLongTimeouts(),
                    const std::string& peerUrl = {},
                    const PackageDatabase* database = nullptr);
    static HttpOptions OptionsWithLongTimeouts();

    /// Ends the instances and the tracing, and reads the log.
    LoggedTrees EndAndRead();

    /// The requests, in the order they began; and the ones that came to this path.
    static std::vector<const LoggedActivity*> Requests(const LoggedTrees& log);
    static const LoggedActivity& RequestFor(const LoggedTrees& log, const std::string& path);

    /// The names of an activity's parts.
    static std::vector<std::string> Parts(const LoggedTrees& log, const LoggedActivity& activity);

    /// Checks that every scope is in the log, that nothing is wrong with it, and that the figures
    /// of each tree add up.
    void ExpectWholeLog(const LoggedTrees& log) const;

    std::filesystem::path m_folder;
    std::filesystem::path m_log;
    std::unique_ptr<TracedRun> m_run;
    PackageDatabase m_sample;
    std::vector<std::unique_ptr<Instance>> m_instances;
    std::size_t m_scopes = 0;
};

/// A request by a client that has all the time in the world.
httplib::Result Ask(const Instance& instance,
                    const std::string& path,
                    const httplib::Headers& headers = {});

/// What an error's answer says, as "STATUS reason"; "STATUS" alone for what is no error.
std::string Verdict(const httplib::Result& result);

/// A status file of so many packages that all ask for each other: what follows dependencies in it
/// takes very long.
std::string TangledStatus(int packages);

}  // namespace packagesearch
