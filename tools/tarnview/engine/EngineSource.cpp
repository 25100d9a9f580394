#include "engine/EngineSource.h"

#include "engine/EngineFilter.h"
#include "engine/EngineTables.h"
#include "engine/StoredId.h"
#include "engine/TopQuestion.h"

#include <algorithm>
#include <map>
#include <unordered_set>
#include <utility>

namespace tarnview {

namespace {

// Of the time of an end line. A row has differences to what is mostly the same.
constexpr const char* endTime = "(begin_us + duration_us + end_skew_us)";

// What was open when it was loaded, and has not ended since; of the activities that this condition
// on their roots is about.
std::string IsStillOpen(const std::string& roots) {
    return std::string(" AND (loader, line, pid) GLOBAL NOT IN (SELECT loader, ") +
           "toUInt64(line - begin_lag), pid FROM " + tables::activities +
           " WHERE was_open = 1 AND " + roots + ")";
}

std::string IsOneOf(const std::vector<std::string>& roots) {
    std::string list;
    for (const std::string& root : roots) {
        list += (list.empty() ? "root IN ('" : "', '") + UuidText(StoredId::Of(root).halves);
    }
    return list + "')";
}

std::string UpperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'f' ? static_cast<char>(letter - 'a' + 'A') : letter;
    });
    return text;
}

std::string Both(const std::string& a, const std::string& b) {
    return "(" + a + ") AND (" + b + ")";
}

struct Conditions {
    std::string ended = "1";
    std::string open = "1";
    std::string roots = "1";

    // The tables are in the order of roots: only their rows are read.
    void AddRoots(const std::vector<std::string>& wanted) {
        roots = IsOneOf(wanted);
        Add(roots);
    }

    void Add(const std::string& condition) {
        ended = Both(ended, condition);
        open = Both(open, condition);
    }
};

// Ids, and not beginnings of ids.
bool AreWhole(const std::vector<std::string>& roots) {
    return !roots.empty() && std::all_of(roots.begin(), roots.end(), [](const std::string& root) {
        return !root.empty() && StoredId::Of(root).text.empty();
    });
}

// Whether all activities of its trees pass, and no others.
bool HasOnlyRoots(Filter filter) {
    const bool hasRoots = !filter.roots.empty();
    filter.roots.clear();
    return hasRoots && filter.IsEmpty();
}

Conditions ConditionsFor(const ActivitySource::Selection& selection) {
    // Each root takes 40 letters of the statement. Of more, all trees are read and looked at here.
    constexpr std::size_t mostRoots = 20'000;
    Conditions conditions;
    if (!selection.roots.empty() && selection.roots.size() <= mostRoots) {
        conditions.AddRoots(selection.roots);
    }
    if (!selection.id.empty()) {
        conditions.Add(IdBeginsWith("id", selection.id) + " OR " +
                       IdBeginsWith("id", UpperCase(selection.id)));
    }
    if (selection.filter == nullptr) {
        return conditions;
    }
    const EngineFilter filter = EngineFilter::Of(*selection.filter);
    if (AreWhole(selection.filter->roots)) {
        conditions.AddRoots(selection.filter->roots);
        if (selection.wantsWholeTrees && HasOnlyRoots(*selection.filter)) {
            return conditions;
        }
    }
    if (selection.wantsWholeTrees) {
        conditions.Add(std::string("root GLOBAL IN (SELECT root FROM ") + tables::activities +
                       " WHERE " + filter.ended + " UNION ALL SELECT root FROM " + tables::open +
                       " WHERE " + filter.open + ")");
    } else {
        conditions.ended = Both(conditions.ended, filter.ended);
        conditions.open = Both(conditions.open, filter.open);
    }
    return conditions;
}

}  // namespace

std::unique_ptr<ActivitySource> OpenEngine(const std::string& url) {
    return std::make_unique<EngineSource>(EngineAddress::Parse(url));
}

void EngineSource::Stream(const std::string& statement, const NativeReader::OnRow& onRow) {
    // Sorting more than fits is done on disk; statements may name many trees.
    const EngineClient::Settings settings{{"max_block_size", "8192"},
                                          {"max_bytes_before_external_sort", "1000000000"},
                                          {"max_bytes_before_external_group_by", "2000000000"},
                                          {"max_query_size", "4000000"},
                                          {"max_ast_elements", "1000000"},
                                          {"max_expanded_ast_elements", "2000000"}};
    NativeReader reader(onRow);
    m_client.Ask(statement + " FORMAT Native", settings, [&](std::string_view bytes) {
        reader.Take(bytes);
    });
    reader.Finish();
}

void EngineSource::ReadActivities(const std::string& table,
                                  const std::string& condition,
                                  const Selection& selection,
                                  const OnActivity& onActivity) {
    const std::unordered_set<std::string_view> roots(selection.roots.begin(),
                                                     selection.roots.end());
    Stream("SELECT " + ActivityColumnsToRead(selection.wantsTables) + " FROM " + table + " WHERE " +
               condition + (selection.isOrdered ? " ORDER BY loader, line" : ""),
           [&](NativeReader& reader) {
               ActivityRow row = ReadActivityRow(reader, m_files);
               if (roots.empty() || roots.count(row.activity.root) != 0) {
                   onActivity(std::move(row.activity));
               }
           });
}

void EngineSource::Read(const Selection& selection, const OnActivity& onActivity) {
    const Conditions conditions = ConditionsFor(selection);
    ReadActivities(tables::activities, conditions.ended, selection, onActivity);
    ReadActivities(
        tables::open, conditions.open + IsStillOpen(conditions.roots), selection, onActivity);
}

void EngineSource::ReadOpen(bool wantsTables, const OnActivity& onActivity) {
    Selection selection;
    selection.wantsTables = wantsTables;
    ReadActivities(tables::open, "1" + IsStillOpen("1"), selection, onActivity);
}

void EngineSource::ReadMessages(const std::string& condition,
                                const std::function<void(const MessageRow&)>& onRow) {
    Stream("SELECT " + MessageColumnsToRead() + " FROM " + tables::messages + " WHERE " +
               condition + " ORDER BY loader, line",
           [&](NativeReader& reader) { onRow(ReadMessageRow(reader, m_files)); });
}

void EngineSource::ReadMessages(const LogScanner::OnLine& onLine) {
    ReadMessages("1", [&](const MessageRow& row) { onLine(row.line, row.place); });
}

void EngineSource::ReadSignsOfLife(bool wantsHosts, const LogScanner::OnLine& onLine) {
    struct Sign {
        LogLine line;
        std::string message;
        std::string environment;
        Place place;
    };

    std::multimap<std::pair<std::uint64_t, std::uint64_t>, Sign> signs;  // by loader and line
    ReadMessages(
        "is_diagnostic = 0 AND (message LIKE 'Opening MetricsMonitor%' OR message LIKE "
        "'Crashed%')",
        [&](const MessageRow& row) {
            Sign sign{row.line, std::string(row.line.message), "", row.place};
            signs.emplace(std::pair(row.origin.loader, row.origin.line), std::move(sign));
        });
    // Of each process the last line. Without a begin line the begin is no time of a line.
    const std::string ended =
        std::string("SELECT loader, line, pid, if(bitAnd(flags, 1) = 1, greatest(begin_us, ") +
        endTime + "), " + endTime + ") AS time_us, end_file AS file FROM " + tables::activities;
    const std::string open = std::string("SELECT loader, line, pid, begin_us AS time_us, ") +
                             "begin_file AS file FROM " + tables::open;
    const std::string other =
        std::string("SELECT loader, line, pid, time_us, file FROM ") + tables::messages;
    for (const std::string& part : {ended, open, other}) {
        Stream(
            "SELECT loader, max(line) AS last_line, pid, max(time_us) AS last_us, "
            "argMax(file, line) AS last_file FROM (" +
                part + ") GROUP BY loader, pid",
            [&](NativeReader& reader) {
                Sign sign;
                std::pair<std::uint64_t, std::uint64_t> key;
                reader.UInt64("loader", key.first);
                reader.UInt64("last_line", key.second);
                reader.Int64("pid", sign.line.process.number);
                reader.Int64("last_us", sign.line.time);
                reader.Text("last_file", sign.place.file);
                sign.place.file = m_files.Keep(sign.place.file);
                sign.line.kind = LineKind::Diagnostic;
                signs.emplace(key, std::move(sign));
            });
    }
    if (wantsHosts) {
        Stream(std::string("SELECT loader, line, pid, environment, end_file FROM ") +
                   tables::activities +
                   " WHERE position(environment, '\"host\"') > 0 ORDER BY loader, line "
                   "LIMIT 1 BY pid",
               [&](NativeReader& reader) {
                   Sign sign;
                   std::pair<std::uint64_t, std::uint64_t> key;
                   std::string_view environment;
                   reader.UInt64("loader", key.first);
                   reader.UInt64("line", key.second);
                   reader.Int64("pid", sign.line.process.number);
                   reader.Text("environment", environment);
                   reader.Text("end_file", sign.place.file);
                   sign.place.file = m_files.Keep(sign.place.file);
                   sign.environment = environment;
                   sign.line.kind = LineKind::Diagnostic;
                   signs.emplace(key, std::move(sign));
               });
    }
    for (auto& [key, sign] : signs) {
        sign.line.message = sign.message;
        sign.line.environment = sign.environment;
        sign.line.severity = sign.line.event = {};
        onLine(sign.line, sign.place);
    }
}

std::optional<std::vector<TopRow>> EngineSource::Top(const std::vector<std::string>& groups,
                                                     const Filter& filter) {
    const auto question = TopQuestion::For(groups, filter);
    if (!question) {
        return std::nullopt;
    }
    TopQuestion::Rows ended =
        question->Ask([this](const std::string& statement, const NativeReader::OnRow& onRow) {
            Stream(statement, onRow);
        });
    // What has not ended is little, and is counted here.
    TopStatistics open(Grouping::FromNames(groups).value(), filter);
    ReadOpen(open.GroupedBy().NeedsTables(), [&](Activity&& activity) { open.Take(activity); });
    for (TopRow& row : open.TakeRows()) {
        TopRow& all = ended[row.key];
        all.key = row.key;
        all.open = row.open;
    }
    std::vector<TopRow> rows;
    for (auto& [key, row] : ended) {
        rows.push_back(std::move(row));
    }
    return rows;
}

Microseconds EngineSource::AskTime(const std::string& expression, const std::string& begin) {
    Microseconds time = 0;
    Stream(expression, [&](NativeReader& reader) { reader.Int64(begin.c_str(), time); });
    return time;
}

Microseconds EngineSource::FirstTime() {
    const auto earliest = [this](const std::string& times, const std::string& from) {
        return AskTime("SELECT min(" + times + ") AS first_us FROM " + from, "first_us");
    };
    Microseconds first = 0;
    const std::string isBegun =
        std::string("if(bitAnd(flags, 1) = 1, least(begin_us, ") + endTime + "), " + endTime + ")";
    for (const Microseconds time :
         {earliest(isBegun, tables::activities),
          earliest("begin_us", tables::open),
          earliest("time_us", std::string(tables::messages) + " WHERE time_us != 0")}) {
        first = time != 0 && (first == 0 || time < first) ? time : first;
    }
    return first;
}

Microseconds EngineSource::LastTime() {
    const auto latest = [this](const std::string& time, const char* table) {
        return AskTime("SELECT max(" + time + ") AS last_us FROM " + table, "last_us");
    };
    return std::max(latest(endTime, tables::activities), latest("begin_us", tables::open));
}

}  // namespace tarnview
