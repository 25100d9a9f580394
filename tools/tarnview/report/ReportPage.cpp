#include "report/ReportPage.h"

#include "export/Gzip.h"
#include "export/Json.h"
#include "export/ThreadLanes.h"
#include "output/TreePrinter.h"
#include "read/Rounding.h"
#include "report/PageText.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <numeric>
#include <ostream>
#include <simdjson.h>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

// Texts one behind the other, a line end behind each, and where each ends as the page counts: in
// UTF-16 code units.
class TextColumn {
public:
    void Add(std::string_view text) {
        // What a browser would decode as it sees fit would move the ends of all that follow.
        std::string ascii;
        if (!simdjson::validate_utf8(text.data(), text.size())) {
            ascii = text;
            std::replace_if(
                ascii.begin(), ascii.end(), [](char byte) { return (byte & 0x80) != 0; }, '?');
            text = ascii;
        }
        for (const char byte : text) {
            const auto unit = static_cast<unsigned char>(byte);
            m_length += (unit & 0xC0U) != 0x80 ? 1 : 0;  // not within a character
            m_length += unit >= 0xF0 ? 1 : 0;            // a pair of surrogates
        }
        m_bytes.append(text).push_back('\n');
        m_ends.push_back(++m_length);
    }

    const std::string& Bytes() const { return m_bytes; }

    const std::vector<std::int32_t>& Ends() const { return m_ends; }

private:
    std::string m_bytes;
    std::vector<std::int32_t> m_ends;
    std::int32_t m_length = 0;
};

// Columns of numbers behind a header that names them, as the page maps them into its memory: little
// endian, each at a multiple of eight bytes.
class Columns {
public:
    void Add(std::string_view name, const std::vector<double>& values) {
        Add(name, "f64", values.size());
        for (const double value : values) {
            Append(std::bit_cast<std::uint64_t>(value), sizeof(value));
        }
    }

    void Add(std::string_view name, const std::vector<std::int32_t>& values) {
        Add(name, "i32", values.size());
        for (const std::int32_t value : values) {
            Append(static_cast<std::uint32_t>(value), sizeof(value));
        }
    }

    void Add(std::string_view name, std::string_view bytes) {
        Add(name, "u8", bytes.size());
        m_bytes.append(bytes);
    }

    void WriteNames(Json& json) const {
        json.BeginArray();
        for (const auto& [name, kind, size] : m_names) {
            json.BeginArray();
            json.Text(name);
            json.Text(kind);
            json.Number(static_cast<long long>(size));
            json.EndArray();
        }
        json.EndArray();
    }

    std::string Behind(std::string header) const {
        constexpr std::size_t sizeBytes = 4;
        header.append((8 - (header.size() + sizeBytes) % 8) % 8, ' ');
        std::string whole;
        for (std::size_t byte = 0; byte < sizeBytes; ++byte) {
            whole.push_back(static_cast<char>(header.size() >> (8 * byte)));
        }
        return whole + header + m_bytes;
    }

private:
    void Add(std::string_view name, std::string_view kind, std::size_t size) {
        m_bytes.append((8 - m_bytes.size() % 8) % 8, '\0');
        m_names.emplace_back(name, kind, size);
    }

    void Append(std::uint64_t value, std::size_t bytes) {
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            m_bytes.push_back(static_cast<char>(value >> (8 * byte)));
        }
    }

    std::vector<std::tuple<std::string, std::string, std::size_t>> m_names;
    std::string m_bytes;
};

class ReportData {
public:
    explicit ReportData(const ActivityForest& forest)
        : m_forest(forest),
          m_lanes(MakeThreadLanes(forest)),
          m_order(forest.Size()),
          m_places(forest.Size()),
          m_laneOf(forest.Size()),
          m_levels(forest.Size()) {
        for (std::size_t number = 0; number < m_lanes.size(); ++number) {
            Nest(m_lanes[number], number);
        }
        std::iota(m_order.begin(), m_order.end(), Index{0});
        std::stable_sort(m_order.begin(), m_order.end(), [this](Index a, Index b) {
            const auto keyOf = [this](Index index) {
                return std::pair(SpanOf(m_forest, index).begin, m_levels[index]);
            };
            return keyOf(a) < keyOf(b);
        });
        for (std::size_t place = 0; place < m_order.size(); ++place) {
            m_places[m_order[place]] = static_cast<std::int32_t>(place);
        }
        m_base = m_order.empty() ? 0 : SpanOf(forest, m_order.front()).begin;
    }

    std::string ToString() {
        Columns columns;
        AddTimes(columns);
        AddFigures(columns);
        AddPlaces(columns);
        AddTexts(columns);
        std::ostringstream header;
        Json json(header);
        json.BeginObject();
        json.Member("base", FormatTimestamp(m_base));
        json.Key("lanes");
        json.BeginArray();
        for (const ThreadLane& lane : m_lanes) {
            json.Text(NameOf(lane));
        }
        json.EndArray();
        json.Key("columns");
        columns.WriteNames(json);
        json.EndObject();
        return columns.Behind(header.str());
    }

private:
    std::string NameOf(const ThreadLane& lane) const {
        const std::string& site = m_forest[lane.activities.front()].site;
        return (site.empty() || site == "-" ? "" : site + " ") + ProcessName(lane.process) + ":" +
               std::to_string(lane.thread) +
               (lane.number == 0 ? "" : " overlap " + std::to_string(lane.number));
    }

    // How many of its lane each activity lies within.
    void Nest(const ThreadLane& lane, std::size_t number) {
        std::vector<Microseconds> ends;
        for (const Index index : lane.activities) {
            const TimeSpan span = SpanOf(m_forest, index);
            while (!ends.empty() && ends.back() <= span.begin) {
                ends.pop_back();
            }
            m_laneOf[index] = static_cast<std::int32_t>(number);
            m_levels[index] = static_cast<std::int32_t>(ends.size());
            if (span.end > span.begin) {
                ends.push_back(span.end);
            }
        }
    }

    // A column: for each activity, in the order of their begins, what `valueOf` says of it.
    template <class Value>
    auto Column(const Value& valueOf) const {
        std::vector<decltype(valueOf(Index{}))> column;
        column.reserve(m_order.size());
        for (const Index index : m_order) {
            column.push_back(valueOf(index));
        }
        return column;
    }

    void AddTimes(Columns& columns) const {
        const auto number = [](Microseconds time) { return static_cast<double>(time); };
        columns.Add("begin", Column([&](Index index) {
                        return number(SpanOf(m_forest, index).begin - m_base);
                    }));
        columns.Add("length", Column([&](Index index) {
                        const TimeSpan span = SpanOf(m_forest, index);
                        return number(span.end - span.begin);
                    }));
        columns.Add("exclusive",
                    Column([&](Index index) { return number(m_forest[index].ExclusiveTime()); }));
        columns.Add("self", Column([&](Index index) {
                        return m_forest[index].hasEnd ? number(m_forest.SelfTime(index)) : 0.0;
                    }));
    }

    void AddFigures(Columns& columns) const {
        const auto add =
            [&](std::string_view name, bool Figures::*isMeasured, const auto& figureOf) {
                columns.Add(name, Column([&](Index index) {
                                const Figures& figures = m_forest[index].figures;
                                return figures.*isMeasured
                                           ? static_cast<double>(Rounded(figureOf(figures)))
                                           : std::numeric_limits<double>::quiet_NaN();
                            }));
            };
        add("cpu", &Figures::hasCpu, [](const Figures& it) { return it.CpuExclusive(); });
        add("cpuAll", &Figures::hasCpu, [](const Figures& it) { return it.CpuInclusive(); });
        add("memory", &Figures::hasAllocated, [](const Figures& it) { return it.ae; });
        add("memoryAll", &Figures::hasAllocated, [](const Figures& it) { return it.ai; });
    }

    void AddPlaces(Columns& columns) const {
        columns.Add("parent", Column([&](Index index) {
                        const Index parent = m_forest.ParentOf(index);
                        return parent == ActivityForest::none ? -1 : m_places[parent];
                    }));
        columns.Add("lane", Column([&](Index index) { return m_laneOf[index]; }));
        columns.Add("level", Column([&](Index index) { return m_levels[index]; }));
        std::string states;
        for (const Index index : m_order) {
            states.push_back(StateOf(m_forest[index]));
        }
        columns.Add("state", states);
    }

    void AddTexts(Columns& columns) {
        columns.Add("name", Column([&](Index index) { return TextNumber(m_forest[index].name); }));
        columns.Add("result", Column([&](Index index) {
                        const Activity& activity = m_forest[index];
                        return TextNumber(activity.hasEnd ? activity.result : "never ended");
                    }));
        columns.Add("detail", Column([&](Index index) {
                        return TextNumber(PairsOf(m_forest[index].resultDetails));
                    }));
        std::vector<std::int32_t> ends;
        std::vector<std::int32_t> names;
        std::vector<std::int32_t> values;
        TextColumn ids;
        for (const Index index : m_order) {
            ForEachOther(index, [&](std::string_view name, const std::string& text) {
                if (!text.empty() && text != "-") {
                    names.push_back(TextNumber(std::string(name)));
                    values.push_back(TextNumber(text));
                }
            });
            ends.push_back(static_cast<std::int32_t>(names.size()));
            ids.Add(m_forest[index].id);
        }
        columns.Add("moreEnd", ends);
        columns.Add("moreName", names);
        columns.Add("moreText", values);
        columns.Add("idEnd", ids.Ends());
        columns.Add("ids", ids.Bytes());
        columns.Add("textEnd", m_texts.Ends());
        columns.Add("texts", m_texts.Bytes());
    }

    // 0: good, 1: failed, 2: terminated early, 3: never ended.
    static char StateOf(const Activity& activity) {
        if (!activity.hasEnd) {
            return 3;
        }
        return activity.IsEarlyTermination() ? 2 : activity.IsFailure() ? 1 : 0;
    }

    // All else that the log says of an activity, each with its name.
    template <class Add>
    void ForEachOther(Index index, const Add& add) const {
        const Activity& activity = m_forest[index];
        add("about", activity.description);
        add("caller", std::string(TextOf(m_forest.LinkOf(index))));
        add("host", std::string(activity.process.host));
        add("user", activity.user);
        add("site", activity.site);
        add("session", activity.session);
        add("request", activity.request);
        add("attributes", PairsOf(activity.attributes));
        add("given at begin", PairsOf(activity.beginBody));
        add("added", PairsOf(activity.endBody));
        std::string supplements;
        for (const std::string& supplement : SupplementsOf(activity.endBody)) {
            supplements.append(supplements.empty() ? "" : "\n").append(supplement);
        }
        add("supplements", supplements);
    }

    // Most texts occur in many activities, so they are kept once.
    std::int32_t TextNumber(const std::string& text) {
        const auto [place, isNew] =
            m_numbers.emplace(text, static_cast<std::int32_t>(m_numbers.size()));
        if (isNew) {
            m_texts.Add(text);
        }
        return place->second;
    }

    const ActivityForest& m_forest;
    std::vector<ThreadLane> m_lanes;
    std::vector<Index> m_order;          // of the begins
    std::vector<std::int32_t> m_places;  // of each activity in that order
    std::vector<std::int32_t> m_laneOf;
    std::vector<std::int32_t> m_levels;
    Microseconds m_base = 0;
    TextColumn m_texts;
    std::unordered_map<std::string, std::int32_t> m_numbers;
};

std::string Base64(std::string_view bytes) {
    constexpr std::string_view letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            const bool isThere = at + byte < bytes.size();
            group = group << 8U | (isThere ? static_cast<unsigned char>(bytes[at + byte]) : 0U);
        }
        for (std::size_t letter = 0; letter < 4; ++letter) {
            const bool isThere = at + letter <= bytes.size();
            text.push_back(isThere ? letters[group >> (18 - 6 * letter) & 0x3FU] : '=');
        }
    }
    return text;
}

}  // namespace

void WriteReportPage(const ActivityForest& forest, std::ostream& out) {
    constexpr std::string_view dataMark = "@DATA@";
    constexpr std::string_view scriptMark = "@SCRIPT@";
    const std::size_t data = pageText.find(dataMark);
    const std::size_t script = pageText.find(scriptMark);
    std::ostringstream packed;
    WriteGzip(ReportData(forest).ToString(), packed);
    out << pageText.substr(0, data) << Base64(packed.str());
    out << pageText.substr(data + dataMark.size(), script - data - dataMark.size()) << pageScript
        << pageText.substr(script + scriptMark.size());
}

}  // namespace tarnview
