#include "Queries.h"

#include "ActivityNames.h"
#include "QueryCatalogue.h"
#include "SlowStep.h"

#include "tarn/ActivityScope.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <system_error>
#include <utility>

namespace packagesearch {

namespace {

const CatalogueEntry& KnownKind(const Query& query) {
    const CatalogueEntry* entry = FindKind(query.kind);
    if (entry == nullptr) {
        throw QueryError("there is no query '" + query.kind + "'");
    }
    return *entry;
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

// The next row, if there is time.
bool Step(sqlite::Statement& statement, tarn::ActivityScope& scope) {
    try {
        return statement.Step();
    } catch (const DeadlineExceeded&) {
        scope.Cancel({{attribute::reason, "deadline"}});
        throw;
    }
}

// Sorting, ranking and recursion are done by the time the first row is there.
bool Execute(sqlite::Statement& statement, const WorkLimits& limits) {
    tarn::ActivityScope scope(activity::execute);
    const SlowStep slow(scope, activity::execute, limits);
    return Step(statement, scope);
}

QueryResult Fetch(sqlite::Statement& statement, bool hasRow, const WorkLimits& limits) {
    tarn::ActivityScope scope(activity::fetch);
    const SlowStep slow(scope, activity::fetch, limits);
    QueryResult result;
    for (int column = 0; column < statement.ColumnCount(); ++column) {
        result.columns.push_back(statement.ColumnName(column));
    }
    for (; hasRow; hasRow = Step(statement, scope)) {
        std::vector<std::string>& row = result.rows.emplace_back();
        for (int column = 0; column < statement.ColumnCount(); ++column) {
            row.push_back(statement.Text(column));
        }
    }
    scope.Add({{attribute::rows, result.rows.size()}});
    return result;
}

std::vector<std::string> FirstColumn(PackageReader& reader, const std::string& sql) {
    sqlite::Statement& statement = reader.Prepare(sql);
    std::vector<std::string> values;
    while (statement.Step()) {
        values.push_back(statement.Text(0));
    }
    return values;
}

}  // namespace

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

QueryResult RunQuery(PackageReader& reader, const Query& query, const WorkLimits& limits) {
    sqlite::Statement& statement = PrepareTraced(reader, query);
    const ResetAtEnd reset(statement);
    const sqlite::DeadlineGuard guard = reader.GuardBy(limits.deadline);
    const bool hasRow = Execute(statement, limits);
    return Fetch(statement, hasRow, limits);
}

}  // namespace packagesearch
