#include "PackageDatabase.h"

#include "ActivityNames.h"
#include "StatusFile.h"

#include "tarn/ActivityScope.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sqlite3.h>
#include <utility>

namespace packagesearch {

namespace {

// A transaction for each package would cost more than the inserting itself; one for the whole
// file would show in the log as one long activity that says nothing about its course.
constexpr std::size_t packagesPerBatch = 200;

// Long enough for a quick writer; the caller is not kept longer.
constexpr std::chrono::milliseconds lockTimeout{50};

// Connections of one process that open the same name share the database. Its memory goes with
// the last of them, so nothing is left behind however the process ends.
std::string NewDatabaseName() {
    static std::atomic<unsigned> count{0};
    return "file:/package_search_" + std::to_string(++count) + "?vfs=memdb";
}

const char* ToText(DependencyKind kind) {
    switch (kind) {
        case DependencyKind::PreDepends:
            return "pre-depends";
        case DependencyKind::Recommends:
            return "recommends";
        case DependencyKind::Depends:
            break;
    }
    return "depends";
}

const char* ToText(WordSearch wordSearch) {
    return wordSearch == WordSearch::FullText ? "fts5" : "like";
}

StatusFile ParseTraced(const std::filesystem::path& path) {
    tarn::ActivityScope scope(activity::parseStatusFile, {{attribute::path, path.string()}});
    StatusFile file = ReadStatusFile(path);
    scope.Add({{attribute::bytes, file.bytes},
               {attribute::packages, file.packages.size()},
               {attribute::notInstalled, file.notInstalled}});
    return file;
}

}  // namespace

WordSearch BestWordSearch() noexcept {
    return sqlite3_compileoption_used("ENABLE_FTS5") != 0 ? WordSearch::FullText : WordSearch::Like;
}

PackageDatabase::PackageDatabase(WordSearch wordSearch)
    : m_wordSearch(wordSearch),
      m_name(NewDatabaseName()),
      m_connection(m_name, sqlite::OpenMode::Create) {}

PackageDatabase::PackageDatabase(const std::filesystem::path& file)
    : m_wordSearch(BestWordSearch()),
      // Absolute, so that no name is taken for a URI.
      m_name(std::filesystem::absolute(file).string()),
      m_connection(m_name, sqlite::OpenMode::Create) {
    m_connection.SetLockTimeout(lockTimeout);
    if (IsFilled() && !HasTable("words")) {
        m_wordSearch = WordSearch::Like;
    }
}

bool PackageDatabase::IsFilled() const {
    return HasTable("packages");
}

bool PackageDatabase::HasTable(std::string_view name) const {
    sqlite::Statement find(m_connection,
                           "SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = ?1");
    find.Bind(1, name);
    return find.Step();
}

void PackageDatabase::CreateTables() {
    m_connection.Execute(R"(
        CREATE TABLE packages (
            id            INTEGER PRIMARY KEY,
            name          TEXT NOT NULL,
            version       TEXT NOT NULL,
            architecture  TEXT NOT NULL,
            section       TEXT NOT NULL,
            installed_kib INTEGER NOT NULL,
            summary       TEXT NOT NULL,
            description   TEXT NOT NULL);
        CREATE TABLE dependencies (
            package     INTEGER NOT NULL REFERENCES packages (id),
            kind        TEXT NOT NULL,
            alternative INTEGER NOT NULL,
            target      TEXT NOT NULL);)");
    if (m_wordSearch == WordSearch::FullText) {
        m_connection.Execute(R"(
            CREATE VIRTUAL TABLE words USING fts5 (
                name, summary, description, content = 'packages', content_rowid = 'id');)");
    }
}

void PackageDatabase::Insert(std::span<const Package> packages) {
    sqlite::Transaction transaction(m_connection);
    sqlite::Statement insertPackage(m_connection, R"(
        INSERT INTO packages (name, version, architecture, section, installed_kib, summary,
                              description)
        VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7) RETURNING id)");
    sqlite::Statement insertDependency(m_connection, R"(
        INSERT INTO dependencies (package, kind, alternative, target) VALUES (?1, ?2, ?3, ?4))");
    for (const Package& package : packages) {
        insertPackage.Reset();
        insertPackage.Bind(1, package.name);
        insertPackage.Bind(2, package.version);
        insertPackage.Bind(3, package.architecture);
        insertPackage.Bind(4, package.section);
        insertPackage.Bind(5, package.installedKib);
        insertPackage.Bind(6, package.summary);
        insertPackage.Bind(7, package.description);
        insertPackage.Step();
        const std::int64_t id = insertPackage.Integer(0);
        insertPackage.Step();
        for (const Dependency& dependency : package.dependencies) {
            insertDependency.Reset();
            insertDependency.Bind(1, id);
            insertDependency.Bind(2, ToText(dependency.kind));
            insertDependency.Bind(3, std::int64_t{dependency.group});
            insertDependency.Bind(4, dependency.name);
            insertDependency.Step();
        }
    }
    // An open statement would keep the transaction from ending.
    insertPackage.Reset();
    insertDependency.Reset();
    transaction.Commit();
}

void PackageDatabase::BuildIndexes() {
    sqlite::Transaction transaction(m_connection);
    // By target: who needs this one. By name: from a target to its package.
    m_connection.Execute(R"(
        CREATE INDEX dependencies_by_target ON dependencies (target, kind, package);
        CREATE INDEX packages_by_name ON packages (name);
        CREATE INDEX packages_by_section ON packages (section);
        CREATE INDEX packages_by_size ON packages (installed_kib);)");
    if (m_wordSearch == WordSearch::FullText) {
        m_connection.Execute("INSERT INTO words (words) VALUES ('rebuild')");
    }
    transaction.Commit();
    m_connection.Execute("ANALYZE");
}

PackageReader::PackageReader(const PackageDatabase& database)
    : m_wordSearch(database.GetWordSearch()),
      m_connection(database.GetName(), sqlite::OpenMode::ReadOnly) {
    m_connection.SetLockTimeout(lockTimeout);
}

sqlite::Statement& PackageReader::Prepare(const std::string& sql) {
    auto place = m_statements.find(sql);
    if (place == m_statements.end()) {
        place = m_statements.emplace(sql, sqlite::Statement(m_connection, sql)).first;
    }
    place->second.Reset();
    return place->second;
}

LoadSummary LoadPackages(const std::filesystem::path& statusFile, PackageDatabase& database) {
    tarn::ActivityScope scope(activity::load,
                              {{attribute::wordSearch, ToText(database.GetWordSearch())}});
    const StatusFile file = ParseTraced(statusFile);
    {
        const tarn::ActivityScope create(activity::createTables);
        database.CreateTables();
    }
    LoadSummary summary;
    for (std::span<const Package> rest(file.packages); !rest.empty();) {
        const auto batch = rest.first(std::min(packagesPerBatch, rest.size()));
        rest = rest.subspan(batch.size());
        const tarn::ActivityScope insert(activity::insertBatch,
                                         {{attribute::packages, batch.size()}});
        database.Insert(batch);
        for (const Package& package : batch) {
            summary.dependencies += package.dependencies.size();
        }
    }
    {
        const tarn::ActivityScope build(activity::buildIndexes);
        database.BuildIndexes();
    }
    summary.packages = file.packages.size();
    summary.notInstalled = file.notInstalled;
    scope.Add(
        {{attribute::packages, summary.packages}, {attribute::dependencies, summary.dependencies}});
    return summary;
}

}  // namespace packagesearch
