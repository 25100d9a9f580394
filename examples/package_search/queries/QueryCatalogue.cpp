#include "QueryCatalogue.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace packagesearch {

namespace {

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
    CatalogueEntry{{"show", ArgumentType::Name, "what is known about a package"}, R"(
            SELECT name, version, architecture, section, installed_kib, summary
            FROM packages
            WHERE name = ?1
            ORDER BY architecture)"},
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

}  // namespace

std::span<const QueryKind> QueryKinds() noexcept {
    return kinds;
}

const CatalogueEntry* FindKind(std::string_view name) {
    const auto found =
        std::find_if(catalogue.begin(), catalogue.end(), [name](const CatalogueEntry& entry) {
            return entry.kind.name == name;
        });
    return found == catalogue.end() ? nullptr : &*found;
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

}  // namespace packagesearch
