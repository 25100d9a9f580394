#pragma once

#include "Deadline.h"
#include "PackageDatabase.h"

#include <cstddef>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace packagesearch {

enum class ArgumentType { None, Name, Number, Words };

/// One kind of question that the program answers.
struct QueryKind {
    std::string_view name;
    ArgumentType argument = ArgumentType::None;
    std::string_view help;
};

/// A question: the name of a kind and, where the kind asks for it, an argument.
struct Query {
    std::string kind;
    std::string argument;

    /// "search compression"
    std::string Text() const { return argument.empty() ? kind : kind + " " + argument; }
};

struct QueryResult {
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;
};

/// The program does not know the question. `what()` is one line.
class QueryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// All kinds there are.
std::span<const QueryKind> QueryKinds() noexcept;

/// Reads "kind argument". Throws `QueryError` for an unknown kind and for an argument that is
/// missing, too much, or no number where one is asked for.
Query ParseQuery(std::string_view text);

/// Reads one query a line; empty lines and lines that begin with "#" are left out. Throws
/// `QueryError` with file and line.
std::vector<Query> ReadQueryFile(const std::filesystem::path& path);

/// A mixed list of questions about the packages that are really there: their largest sections,
/// the packages that most others need, words of their descriptions. Traced as "choose-queries".
std::vector<Query> ChooseQueries(const PackageDatabase& database);

/// Answers the query; traced as "prepare", "execute" and "fetch" under the thread's current
/// activity. Throws `QueryError`, `sqlite::SqliteError` or, once it takes too long,
/// `DeadlineExceeded`; the step that it was in is canceled then.
QueryResult RunQuery(PackageReader& reader, const Query& query, const WorkLimits& limits = {});

}  // namespace packagesearch
