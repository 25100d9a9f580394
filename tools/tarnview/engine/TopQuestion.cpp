#include "engine/TopQuestion.h"

#include "engine/EngineFilter.h"
#include "engine/EngineTables.h"

#include <algorithm>
#include <utility>

namespace tarnview {

namespace {

struct GroupColumn {
    const char* group;
    const char* expression;
};

// As ActivityField reads them; what is empty shows as "-".
constexpr GroupColumn groupColumns[] = {
    {"name", "if(name = '', '-', name)"},
    {"user", "if(user = '', '-', user)"},
    {"site", "if(site = '', '-', site)"},
    {"session", "if(session = '', '-', session)"},
    {"request", "if(request = '', '-', request)"},
    {"req-desc", "if(req_desc = '', '-', req_desc)"},
    {"result", "if(result = '', '-', result)"},
    {"pid", "toString(pid)"},
    {"tid", "toString(tid)"},
    {"depth", "toString(depth)"},
};

// The lower edge of the class of DurationHistogram: eleven bits of it count.
// Both branches are computed for all rows, hence the bounds.
constexpr const char* durationClass =
    "if(duration_us < 2048, toUInt64(greatest(duration_us, 0)), toUInt64(toUInt64(duration_us) - "
    "toUInt64(duration_us) % intDiv(roundToExp2(toUInt64(greatest(duration_us, 2048))), 1024)))";

}  // namespace

std::optional<TopQuestion> TopQuestion::For(const std::vector<std::string>& groups,
                                            const Filter& filter) {
    const EngineFilter conditions = EngineFilter::Of(filter);
    if (!conditions.isExact) {
        return std::nullopt;
    }
    TopQuestion question;
    question.m_condition = conditions.ended;
    for (const std::string& group : groups) {
        const auto* const found = std::find_if(
            std::begin(groupColumns), std::end(groupColumns), [&](const GroupColumn& column) {
                return column.group == group;
            });
        if (found == std::end(groupColumns)) {
            return std::nullopt;
        }
        const std::string name = "key" + std::to_string(question.m_keyCount++);
        const char* const comma = question.m_keys.empty() ? "" : ", ";
        question.m_keys += comma + (found->expression + (" AS " + name));
        question.m_names += comma + name;
    }
    return question;
}

std::vector<std::string> TopQuestion::ReadKey(NativeReader& reader) const {
    std::vector<std::string> key;
    for (std::size_t index = 0; index < m_keyCount; ++index) {
        std::string_view text;
        reader.Text(("key" + std::to_string(index)).c_str(), text);
        key.emplace_back(text);
    }
    return key;
}

TopQuestion::Rows TopQuestion::Ask(const Asking& ask) const {
    struct Class {
        std::uint64_t duration;
        std::uint64_t count;
    };

    const std::string from = std::string(" FROM ") + tables::activities + " WHERE " + m_condition;
    Rows rows;
    std::map<std::vector<std::string>, std::vector<Class>> classes;
    ask("SELECT " + m_keys + ", " + durationClass +
            " AS class_us, count() AS calls, countIf(result NOT IN ('ok', 'early-termination')) AS "
            "failures, countIf(result = 'early-termination') AS terminations, sum(duration_us) AS "
            "total_us, max(duration_us) AS longest_us, sum(exclusive_us) AS own_us, "
            "countIf(bitAnd(flags, 128) != 0) AS cpu_count, sum(if(bitAnd(flags, 128) != 0, ke + "
            "ue, 0)) AS cpu_us, countIf(bitAnd(flags, 16) != 0) AS memory_count, "
            "sum(if(bitAnd(flags, 16) != 0, ae, 0)) AS memory_bytes" +
            from + " GROUP BY " + m_names + ", class_us",
        [&](NativeReader& reader) {
            std::vector<std::string> key = ReadKey(reader);
            TopRow part;
            Class one{};
            reader.UInt64("class_us", one.duration);
            reader.UInt64("calls", part.count);
            reader.UInt64("failures", part.failed);
            reader.UInt64("terminations", part.terminated);
            reader.Int64("total_us", part.total);
            reader.Int64("longest_us", part.maximum);
            reader.Int64("own_us", part.exclusive);
            reader.UInt64("cpu_count", part.cpuCount);
            reader.Float64("cpu_us", part.cpu);
            reader.UInt64("memory_count", part.memoryCount);
            reader.Float64("memory_bytes", part.memory);
            one.count = part.count;
            classes[key].push_back(one);
            TopRow& row = rows[key];
            row.key = std::move(key);
            row.count += part.count;
            row.failed += part.failed;
            row.terminated += part.terminated;
            row.total += part.total;
            row.maximum = std::max(row.maximum, part.maximum);
            row.exclusive += part.exclusive;
            row.cpuCount += part.cpuCount;
            row.cpu += part.cpu;
            row.memoryCount += part.memoryCount;
            row.memory += part.memory;
        });
    // Below two milliseconds a class is a duration; so it is enough where there are many.
    std::string small;
    for (auto& [key, counts] : classes) {
        const bool isSmall = !DurationHistogram::CountsInClasses(rows[key].count) &&
                             std::any_of(counts.begin(), counts.end(), [](const Class& one) {
                                 return one.duration >= 2048;
                             });
        if (isSmall) {
            std::string texts;
            for (const std::string& text : key) {
                texts += (texts.empty() ? "" : ", ") + Quoted(text);
            }
            small += (small.empty() ? "(" : ", (") + texts + ")";
            continue;
        }
        for (const Class& one : counts) {
            rows[key].durations.Add(one.duration, one.count);
        }
    }
    if (!small.empty()) {
        ask("SELECT " + m_keys +
                ", toUInt64(greatest(duration_us, 0)) AS each_us, count() AS calls" + from +
                " AND (" + m_names + ") IN (" + small + ") GROUP BY " + m_names + ", each_us",
            [&](NativeReader& reader) {
                const std::vector<std::string> key = ReadKey(reader);
                Class one{};
                reader.UInt64("each_us", one.duration);
                reader.UInt64("calls", one.count);
                rows[key].durations.Add(one.duration, one.count);
            });
    }
    return rows;
}

}  // namespace tarnview
