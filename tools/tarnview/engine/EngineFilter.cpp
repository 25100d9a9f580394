#include "engine/EngineFilter.h"

#include "engine/ActivityRow.h"
#include "engine/StoredId.h"

#include <optional>
#include <vector>

namespace tarnview {

namespace {

// A pattern of the shell as one of LIKE, if it has nothing but letters and '*'.
std::optional<std::string> LikeOf(const std::string& pattern) {
    if (pattern.find_first_of("?[\\") != std::string::npos) {
        return std::nullopt;
    }
    std::string like;
    for (const char letter : pattern) {
        if (letter == '%' || letter == '_') {
            like += '\\';
        }
        like += letter == '*' ? '%' : letter;
    }
    return like;
}

class Conditions {
public:
    void Add(const std::string& condition) {
        m_text += (m_text.empty() ? "" : " AND ") + condition;
    }

    void AddOneOf(const std::vector<std::string>& conditions) {
        std::string text;
        for (const std::string& condition : conditions) {
            text += (text.empty() ? "(" : " OR ") + condition;
        }
        if (!text.empty()) {
            Add(text + ")");
        }
    }

    std::string Text() const { return m_text.empty() ? "1" : m_text; }

private:
    std::string m_text;
};

void AddPatterns(Conditions& conditions,
                 const char* column,
                 const std::vector<std::string>& patterns,
                 bool& isExact) {
    std::vector<std::string> alternatives;
    for (const std::string& pattern : patterns) {
        const auto like = LikeOf(pattern);
        if (!like) {
            isExact = false;
            return;
        }
        alternatives.push_back(pattern.find('*') == std::string::npos
                                   ? column + (" = " + Quoted(pattern))
                                   : column + (" LIKE " + Quoted(*like)));
    }
    conditions.AddOneOf(alternatives);
}

// What holds of activities that have ended and of others.
Conditions Common(const Filter& filter, bool& isExact) {
    Conditions conditions;
    std::vector<std::string> roots;
    for (const std::string& root : filter.roots) {
        roots.push_back(IdBeginsWith("root", root));
    }
    conditions.AddOneOf(roots);
    AddPatterns(conditions, "name", filter.names, isExact);
    AddPatterns(conditions, "user", filter.users, isExact);
    AddPatterns(conditions, "site", filter.sites, isExact);
    std::string processes;
    for (const std::int64_t process : filter.processes) {
        processes += (processes.empty() ? "pid IN (" : ", ") + std::to_string(process);
    }
    if (!processes.empty()) {
        conditions.Add(processes + ")");
    }
    if (filter.before) {
        conditions.Add("begin_us < " + std::to_string(*filter.before));
    }
    isExact = isExact && !filter.where;
    return conditions;
}

}  // namespace

std::string Quoted(std::string_view text) {
    std::string quoted = "'";
    for (const char letter : text) {
        if (letter == '\'' || letter == '\\') {
            quoted += '\\';
        }
        if (letter == '\0') {
            quoted += "\\0";
        } else {
            quoted += letter;
        }
    }
    return quoted + "'";
}

std::string IdBeginsWith(const std::string& column, const std::string& beginning) {
    if (const StoredId id = StoredId::Of(beginning); !beginning.empty() && id.text.empty()) {
        return "(" + column + " = " + Quoted(beginning) + " AND " + column + "_text = '')";
    }
    return "startsWith(if(" + column + "_text = '', upper(toString(" + column + ")), " + column +
           "_text), " + Quoted(beginning) + ")";
}

EngineFilter EngineFilter::Of(const Filter& filter) {
    EngineFilter result;
    result.isExact = true;
    Conditions ended = Common(filter, result.isExact);
    result.open = filter.WantsOpen() ? ended.Text() : "0";
    AddPatterns(ended, "result", filter.results, result.isExact);
    if (filter.isFailed) {
        ended.Add("result NOT IN ('ok', 'early-termination')");
    }
    if (filter.isNotOk) {
        ended.Add("result != 'ok'");
    }
    if (filter.slowerThan) {
        ended.Add("duration_us > " + std::to_string(*filter.slowerThan));
    }
    if (filter.since) {
        ended.Add("day >= toDate(" + std::to_string(DayOf(*filter.since)) + ")");
        ended.Add("begin_us + duration_us + end_skew_us >= " + std::to_string(*filter.since));
    }
    result.ended = ended.Text();
    return result;
}

}  // namespace tarnview
