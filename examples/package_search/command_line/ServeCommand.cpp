#include "ServeCommand.h"

#include "PackageDatabase.h"
#include "PeerClient.h"
#include "QueryService.h"
#include "RequestContext.h"
#include "SearchRoutes.h"
#include "StopSignal.h"
#include "TracedRun.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <system_error>

namespace packagesearch {

namespace {

void Load(const ServeOptions& options, PackageDatabase& database) {
    const RequestContext request({{}, options.http.site, {}, "load", {}});
    LoadPackages(options.statusFile, database);
}

// A file that is loaded appears when it is whole.
void LoadIntoFile(const ServeOptions& options) {
    std::filesystem::path unfinished = options.databaseFile;
    unfinished += ".new";
    std::filesystem::remove(unfinished);
    try {
        PackageDatabase database(unfinished);
        Load(options, database);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(unfinished, ignored);
        throw;
    }
    std::filesystem::rename(unfinished, options.databaseFile);
}

std::unique_ptr<PackageDatabase> OpenDatabase(const ServeOptions& options) {
    if (options.databaseFile.empty()) {
        auto database = std::make_unique<PackageDatabase>();
        Load(options, *database);
        return database;
    }
    if (!std::filesystem::exists(options.databaseFile)) {
        LoadIntoFile(options);
    }
    auto database = std::make_unique<PackageDatabase>(options.databaseFile);
    if (!database->IsFilled()) {
        throw std::runtime_error(options.databaseFile.string() + ": holds no packages");
    }
    return database;
}

// The file appears complete, for those who wait for it.
void WritePort(const std::filesystem::path& path, int port) {
    std::filesystem::path unfinished = path;
    unfinished += ".new";
    std::ofstream file(unfinished);
    file << port << '\n';
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), unfinished.string());
    }
    std::filesystem::rename(unfinished, path);
}

}  // namespace

void RunService(const ServeOptions& options, std::ostream& out) {
    const StopSignal stop;
    std::optional<PeerClient> peer;
    if (!options.peerUrl.empty()) {
        peer.emplace(options.peerUrl);
    }
    const TracedRun run(options.logFile);
    const std::unique_ptr<PackageDatabase> database = OpenDatabase(options);
    QueryService queries(*database, options.workers);
    const SearchRoutes routes(queries, peer ? &*peer : nullptr);
    HttpService http(options.http, routes);
    if (!options.portFile.empty()) {
        WritePort(options.portFile, http.Port());
    }
    out << "Serving http://127.0.0.1:" << http.Port() << ", tracing to "
        << std::filesystem::absolute(options.logFile).string() << std::endl;
    stop.Wait();
    http.Stop();
    out << "Stopped after " << http.RequestsAnswered() << " requests, " << run.ScopesTraced()
        << " scopes traced." << std::endl;
}

}  // namespace packagesearch
