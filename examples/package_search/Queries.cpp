#include "Queries.h"

#include "ActivityNames.h"

#include "tarn/ActivityScope.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <system_error>
#include <utility>

namespace packagesearch {

namespace {

struct CatalogueEntry {
    QueryKind kind{};
    const char* sql = nullptr;
};

// "%WORDS%" stands for the common table expression `matches (id, score)` of the packages that
// the words ?1 are found in. Dependents are followed over names, because that is what a
// dependency holds; UNION drops what was met before, which ends cycles.
constexpr std::array catalogue{
    CatalogueEntry{{"search", ArgumentType::Words, "the 20 best matches for words"}, R"(
            WITH %WORDS%
            SELECT p.name, p.version, p.summary
            FROM matches JOIN packages p USING (id)
            ORDER BY score DESC, p.name LIMIT 20)"},
    CatalogueEntry{{"rdepends", ArgumentType::Name, "the packages that ask for a package"}, R"(
            SELECT DISTINCT p.name, d.kind
            FROM dependencies d JOIN packages p ON p.id = d.package
            WHERE d.target = ?1
            ORDER BY p.name, d.kind)"},
    CatalogueEntry{{"breaks",
                    ArgumentType::Name,
                    "what stops working without a package, and what without that"},
                   R"(
            WITH RECURSIVE broken (name) AS (
                VALUES (?1)
                UNION
                SELECT p.name
                FROM broken b JOIN dependencies d ON d.target = b.name AND d.kind <> 'recommends'
                              JOIN packages p ON p.id = d.package)
            SELECT p.name, p.section, p.installed_kib
            FROM broken JOIN packages p USING (name)
            WHERE p.name <> ?1
            ORDER BY p.name)"},
    CatalogueEntry{{"largest", ArgumentType::Number, "the largest packages"}, R"(
            SELECT name, installed_kib, section
            FROM packages
            ORDER BY installed_kib DESC, name LIMIT ?1)"},
    CatalogueEntry{{"section", ArgumentType::Name, "the packages of a section"}, R"(
            SELECT name, version, installed_kib
            FROM packages
            WHERE section = ?1
            ORDER BY name)"},
    CatalogueEntry{{"sections", ArgumentType::None, "all sections with number and size"}, R"(
            SELECT section, count(*) AS packages, sum(installed_kib) AS installed_kib
            FROM packages
            GROUP BY section
            ORDER BY sum(installed_kib) DESC, section)"},
    CatalogueEntry{{"impact",
                    ArgumentType::Words,
                    "the best 50 matches for words, by how much would break without them"},
                   R"(
            WITH RECURSIVE %WORDS%,
            best (id, score) AS (
                SELECT id, score FROM matches ORDER BY score DESC, id LIMIT 50),
            broken (root, name) AS (
                SELECT p.id, p.name FROM best JOIN packages p USING (id)
                UNION
                SELECT b.root, p.name
                FROM broken b JOIN dependencies d ON d.target = b.name AND d.kind <> 'recommends'
                              JOIN packages p ON p.id = d.package)
            SELECT r.name, count(*) - 1 AS broken, sum(p.installed_kib) AS installed_kib
            FROM broken b JOIN packages r ON r.id = b.root JOIN packages p ON p.name = b.name
            GROUP BY b.root
            ORDER BY broken DESC, r.name LIMIT 20)"},
    CatalogueEntry{{"hubs", ArgumentType::Number, "the packages that most others rest on"}, R"(
            WITH RECURSIVE wanted (target, direct) AS (
                SELECT d.target, count(DISTINCT d.package) AS direct
                FROM dependencies d JOIN packages p ON p.name = d.target
                WHERE d.kind <> 'recommends'
                GROUP BY d.target
                ORDER BY direct DESC, d.target LIMIT 10 * ?1),
            broken (root, name) AS (
                SELECT target, target FROM wanted
                UNION
                SELECT b.root, p.name
                FROM broken b JOIN dependencies d ON d.target = b.name AND d.kind <> 'recommends'
                              JOIN packages p ON p.id = d.package)
            SELECT w.target AS name, w.direct, count(*) - 1 AS broken
            FROM broken b JOIN wanted w ON w.target = b.root
            GROUP BY b.root
            ORDER BY broken DESC, w.direct DESC, name LIMIT ?1)"},
};

constexpr auto kinds = [] {
    std::array<QueryKind, catalogue.size()> result{};
    for (std::size_t index = 0; index < catalogue.size(); ++index) {
        result[index] = catalogue[index].kind;
    }
    return result;
}();

constexpr const char* matchesByFullText = R"(
        matches (id, score) AS (
            SELECT rowid, -bm25(words, 10.0, 4.0, 1.0) FROM words WHERE words MATCH ?1))";

constexpr const char* matchesByLike = R"(
        matches (id, score) AS (
            SELECT id, 10 * (name LIKE ?1 ESCAPE '\') + 4 * (summary LIKE ?1 ESCAPE '\') +
                       (description LIKE ?1 ESCAPE '\') AS hits
            FROM packages WHERE hits > 0))";

const CatalogueEntry* FindKind(std::string_view name) {
    const auto found =
        std::find_if(catalogue.begin(), catalogue.end(), [name](const CatalogueEntry& entry) {
            return entry.kind.name == name;
        });
    return found == catalogue.end() ? nullptr : &*found;
}

const CatalogueEntry& KnownKind(const Query& query) {
    const CatalogueEntry* entry = FindKind(query.kind);
    if (entry == nullptr) {
        throw QueryError("there is no query '" + query.kind + "'");
    }
    return *entry;
}

std::string Sql(const CatalogueEntry& entry, WordSearch wordSearch) {
    constexpr std::string_view placeholder = "%WORDS%";
    std::string sql = entry.sql;
    const std::size_t place = sql.find(placeholder);
    if (place != std::string::npos) {
        sql.replace(place,
                    placeholder.size(),
                    wordSearch == WordSearch::FullText ? matchesByFullText : matchesByLike);
    }
    return sql;
}

std::int64_t Number(const Query& query) {
    const char* const end = query.argument.data() + query.argument.size();
    std::int64_t number = 0;
    const auto [stop, error] = std::from_chars(query.argument.data(), end, number);
    // The limit keeps multiples of the number inside 64 bits.
    if (error != std::errc() || stop != end || number < 1 || number > 1'000'000) {
        throw QueryError("'" + query.kind + "' needs a number from 1 to 1000000, not '" +
                         query.argument + "'");
    }
    return number;
}

std::string_view NextWord(std::string_view& text) {
    constexpr const char* blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

// Every word in quotes, so that nothing in it is an operator of the search language.
std::string FullTextPattern(std::string_view words) {
    std::string pattern;
    for (std::string_view word = NextWord(words); !word.empty(); word = NextWord(words)) {
        pattern.append(pattern.empty() ? "\"" : " \"");
        for (const char character : word) {
            pattern.append(character == '"' ? 2 : 1, character);
        }
        pattern.push_back('"');
    }
    return pattern;
}

std::string LikePattern(std::string_view words) {
    std::string pattern = "%";
    for (std::string_view word = NextWord(words); !word.empty(); word = NextWord(words)) {
        for (const char character : word) {
            if (character == '%' || character == '_' || character == '\\') {
                pattern.push_back('\\');
            }
            pattern.push_back(character);
        }
        pattern.push_back('%');
    }
    return pattern;
}

void BindArgument(sqlite::Statement& statement,
                  const CatalogueEntry& entry,
                  const Query& query,
                  WordSearch wordSearch) {
    switch (entry.kind.argument) {
        case ArgumentType::None:
            break;
        case ArgumentType::Name:
            statement.Bind(1, query.argument);
            break;
        case ArgumentType::Number:
            statement.Bind(1, Number(query));
            break;
        case ArgumentType::Words:
            statement.Bind(1,
                           wordSearch == WordSearch::FullText ? FullTextPattern(query.argument)
                                                              : LikePattern(query.argument));
            break;
    }
}

sqlite::Statement& PrepareTraced(PackageReader& reader, const Query& query) {
    const CatalogueEntry& entry = KnownKind(query);
    const std::string sql = Sql(entry, reader.GetWordSearch());
    const tarn::ActivityScope scope(activity::prepare,
                                    {{attribute::cached, reader.IsPrepared(sql)}});
    sqlite::Statement& statement = reader.Prepare(sql);
    BindArgument(statement, entry, query, reader.GetWordSearch());
    return statement;
}

// A statement that is left in the middle of its rows keeps the database locked.
class ResetAtEnd {
public:
    explicit ResetAtEnd(sqlite::Statement& statement) : m_statement(statement) {}

    ~ResetAtEnd() { m_statement.Reset(); }

    ResetAtEnd(const ResetAtEnd&) = delete;
    ResetAtEnd& operator=(const ResetAtEnd&) = delete;

private:
    sqlite::Statement& m_statement;
};

std::vector<std::string> FirstColumn(PackageReader& reader, const std::string& sql) {
    sqlite::Statement& statement = reader.Prepare(sql);
    std::vector<std::string> values;
    while (statement.Step()) {
        values.push_back(statement.Text(0));
    }
    return values;
}

}  // namespace

std::span<const QueryKind> QueryKinds() noexcept {
    return kinds;
}

Query ParseQuery(std::string_view text) {
    std::string_view rest = text;
    Query query;
    query.kind = NextWord(rest);
    for (std::string_view word = NextWord(rest); !word.empty(); word = NextWord(rest)) {
        query.argument.append(query.argument.empty() ? "" : " ").append(word);
    }
    const ArgumentType argument = KnownKind(query).kind.argument;
    if (argument == ArgumentType::None && !query.argument.empty()) {
        throw QueryError("'" + query.kind + "' takes no argument");
    }
    if (argument != ArgumentType::None && query.argument.empty()) {
        throw QueryError("'" + query.kind + "' needs an argument");
    }
    if (argument == ArgumentType::Number) {
        Number(query);
    }
    return query;
}

std::vector<Query> ReadQueryFile(const std::filesystem::path& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw QueryError(path.string() + ": is a directory");
    }
    std::ifstream file(path);
    if (!file) {
        throw QueryError(path.string() + ": cannot be opened: " + std::strerror(errno));
    }
    std::vector<Query> queries;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        std::string_view rest = line;
        const std::string_view firstWord = NextWord(rest);
        if (firstWord.empty() || firstWord.front() == '#') {
            continue;
        }
        try {
            queries.push_back(ParseQuery(line));
        } catch (const QueryError& problem) {
            throw QueryError(path.string() + ":" + std::to_string(number) + ": " + problem.what());
        }
    }
    if (queries.empty()) {
        throw QueryError(path.string() + ": holds no query");
    }
    return queries;
}

std::vector<Query> ChooseQueries(const PackageDatabase& database) {
    tarn::ActivityScope scope(activity::chooseQueries);
    PackageReader reader(database);
    std::vector<Query> queries{{"sections", ""}, {"largest", "20"}, {"hubs", "20"}};
    for (const char* words : {"library", "compression", "text editor", "network", "python"}) {
        queries.push_back({"search", words});
        queries.push_back({"impact", words});
    }
    for (const std::string& section : FirstColumn(reader, R"(
             SELECT section FROM packages WHERE section <> ''
             GROUP BY section ORDER BY sum(installed_kib) DESC, section LIMIT 4)")) {
        queries.push_back({"section", section});
    }
    for (const std::string& name : FirstColumn(reader, R"(
             SELECT d.target FROM dependencies d JOIN packages p ON p.name = d.target
             GROUP BY d.target ORDER BY count(DISTINCT d.package) DESC, d.target LIMIT 4)")) {
        queries.push_back({"rdepends", name});
        queries.push_back({"breaks", name});
    }
    scope.Add({{attribute::queries, queries.size()}});
    return queries;
}

QueryResult RunQuery(PackageReader& reader, const Query& query) {
    sqlite::Statement& statement = PrepareTraced(reader, query);
    const ResetAtEnd reset(statement);
    bool hasRow = false;
    {
        // Sorting, ranking and recursion are done by the time the first row is there.
        const tarn::ActivityScope scope(activity::execute);
        hasRow = statement.Step();
    }
    QueryResult result;
    for (int column = 0; column < statement.ColumnCount(); ++column) {
        result.columns.push_back(statement.ColumnName(column));
    }
    tarn::ActivityScope scope(activity::fetch);
    for (; hasRow; hasRow = statement.Step()) {
        std::vector<std::string>& row = result.rows.emplace_back();
        for (int column = 0; column < statement.ColumnCount(); ++column) {
            row.push_back(statement.Text(column));
        }
    }
    scope.Add({{attribute::rows, result.rows.size()}});
    return result;
}

}  // namespace packagesearch
