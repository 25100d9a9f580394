#pragma once

#include "Package.h"
#include "Sqlite.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <string_view>

namespace packagesearch {

/// How packages are found by words.
enum class WordSearch {
    FullText,  ///< SQLite's FTS5 index
    Like,      ///< looking through all texts, where SQLite was built without FTS5
};

/// `FullText` where the SQLite of this machine has it.
WordSearch BestWordSearch() noexcept;

/// The packages in an SQLite database: in a file, or in this process's memory for as long as the
/// object or a reader of it lives. One thread fills it, to begin with; after that any number of
/// threads read it, each through a `PackageReader` of its own. Throws `sqlite::SqliteError`.
class PackageDatabase {
public:
    /// A new one in memory.
    explicit PackageDatabase(WordSearch wordSearch = BestWordSearch());

    /// The one in a file, which is made when it is not there.
    explicit PackageDatabase(const std::filesystem::path& file);

    /// Whether there are tables in it. Throws when it is no database or cannot be read.
    bool IsFilled() const;

    void CreateTables();

    /// Adds packages in one transaction: all of them or none.
    void Insert(std::span<const Package> packages);

    /// Makes what has been inserted quick to find. Call it once, after the last `Insert`.
    void BuildIndexes();

    WordSearch GetWordSearch() const noexcept { return m_wordSearch; }

    /// What connections open.
    const std::string& GetName() const noexcept { return m_name; }

private:
    bool HasTable(std::string_view name) const;

    WordSearch m_wordSearch;
    std::string m_name;
    sqlite::Connection m_connection;
};

/// One thread's way into the database, with the statements it has prepared. The database must
/// outlive it.
class PackageReader {
public:
    explicit PackageReader(const PackageDatabase& database);

    /// The statement for this text, prepared at the first call and kept; ready to be bound.
    sqlite::Statement& Prepare(const std::string& sql);

    sqlite::DeadlineGuard GuardBy(const Deadline& deadline) const {
        return sqlite::DeadlineGuard(m_connection, deadline);
    }

    bool IsPrepared(const std::string& sql) const { return m_statements.count(sql) != 0; }

    WordSearch GetWordSearch() const noexcept { return m_wordSearch; }

private:
    WordSearch m_wordSearch;
    sqlite::Connection m_connection;
    std::map<std::string, sqlite::Statement, std::less<>> m_statements;
};

struct LoadSummary {
    std::size_t packages = 0;
    std::size_t notInstalled = 0;
    std::size_t dependencies = 0;
};

/// Reads the status file into an empty database, as the traced activity "load". Throws
/// `StatusFileError` or `sqlite::SqliteError`.
LoadSummary LoadPackages(const std::filesystem::path& statusFile, PackageDatabase& database);

}  // namespace packagesearch
