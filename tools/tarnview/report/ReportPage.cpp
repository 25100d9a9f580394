#include "report/ReportPage.h"

#include "export/Json.h"
#include "export/ThreadLanes.h"
#include "output/TreePrinter.h"
#include "read/Rounding.h"
#include "report/PageText.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

class ReportData {
public:
    explicit ReportData(const ActivityForest& forest) : m_forest(forest) {
        m_lanes.resize(forest.Size());
        m_levels.resize(forest.Size());
        for (Index index = 0; index < forest.Size(); ++index) {
            const Microseconds begin = forest[index].begin;
            m_base = index == 0 ? begin : std::min(m_base, begin);
        }
    }

    void Write(std::ostream& out) {
        Json json(out);
        json.BeginObject();
        json.Member("base", FormatTimestamp(m_base));
        json.Key("lanes");
        json.BeginArray();
        const std::vector<ThreadLane> lanes = MakeThreadLanes(m_forest);
        for (std::size_t number = 0; number < lanes.size(); ++number) {
            json.Text(NameOf(lanes[number]));
            Nest(lanes[number], number);
        }
        json.EndArray();
        json.Key("activities");
        json.BeginArray();
        for (Index index = 0; index < m_forest.Size(); ++index) {
            WriteActivity(json, index);
        }
        json.EndArray();
        json.Key("texts");
        json.BeginArray();
        for (const std::string& text : m_texts) {
            json.Text(text);
        }
        json.EndArray();
        json.EndObject();
    }

private:
    std::string NameOf(const ThreadLane& lane) const {
        const std::string& site = m_forest[lane.activities.front()].site;
        return (site.empty() || site == "-" ? "" : site + " ") + std::to_string(lane.process) +
               ":" + std::to_string(lane.thread) +
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
            m_lanes[index] = number;
            m_levels[index] = ends.size();
            if (span.end > span.begin) {
                ends.push_back(span.end);
            }
        }
    }

    // Most texts occur in many activities, so they are kept once.
    long long TextNumber(const std::string& text) {
        const auto [place, isNew] = m_numbers.emplace(text, m_texts.size());
        if (isNew) {
            m_texts.push_back(text);
        }
        return static_cast<long long>(place->second);
    }

    void WriteActivity(Json& json, Index index) {
        const Activity& activity = m_forest[index];
        const Index parent = m_forest.ParentOf(index);
        const TimeSpan span = SpanOf(m_forest, index);
        json.BeginArray();
        json.Text(activity.id);
        json.Number(TextNumber(activity.name));
        json.Number(parent == ActivityForest::none ? -1LL : static_cast<long long>(parent));
        json.Number(static_cast<long long>(m_lanes[index]));
        json.Number(static_cast<long long>(m_levels[index]));
        json.Number(static_cast<long long>(span.begin - m_base));
        json.Number(static_cast<long long>(span.end - span.begin));
        json.Number(static_cast<long long>(activity.ExclusiveTime()));
        const Figures& figures = activity.figures;
        WriteFigure(json, figures.hasCpu, figures.CpuExclusive());
        WriteFigure(json, figures.hasAllocated, figures.ae);
        json.Number(TextNumber(activity.hasEnd ? activity.result : "never ended"));
        json.Number(TextNumber(PairsOf(activity.resultDetails)));
        WriteMore(json, index);
        json.Number(StateOf(activity));
        WriteFigure(json, figures.hasCpu, figures.CpuInclusive());
        WriteFigure(json, figures.hasAllocated, figures.ai);
        json.Number(activity.hasEnd ? static_cast<long long>(m_forest.SelfTime(index)) : 0LL);
        json.EndArray();
    }

    static void WriteFigure(Json& json, bool isMeasured, double figure) {
        if (isMeasured) {
            json.Number(Rounded(figure));
        } else {
            json.Nothing();
        }
    }

    // 0: good, 1: failed, 2: terminated early, 3: never ended.
    static long long StateOf(const Activity& activity) {
        if (!activity.hasEnd) {
            return 3;
        }
        return activity.IsEarlyTermination() ? 2 : activity.IsFailure() ? 1 : 0;
    }

    void WriteMore(Json& json, Index index) {
        const Activity& activity = m_forest[index];
        json.BeginObject();
        const auto add = [&](std::string_view name, const std::string& text) {
            if (!text.empty() && text != "-") {
                json.Member(name, TextNumber(text));
            }
        };
        add("about", activity.description);
        add("caller", std::string(TextOf(m_forest.LinkOf(index))));
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
        json.EndObject();
    }

    const ActivityForest& m_forest;
    Microseconds m_base = 0;
    std::vector<std::size_t> m_lanes;
    std::vector<std::size_t> m_levels;
    std::vector<std::string> m_texts;
    std::unordered_map<std::string, std::size_t> m_numbers;
};

// Within a page no text may look like the end of the element around it. Outside of its
// texts JSON has no such character.
void WriteWithoutMarkup(const std::string& json, std::ostream& out) {
    for (const char character : json) {
        if (character == '<') {
            out << "\\u003c";
        } else {
            out << character;
        }
    }
}

}  // namespace

void WriteReportPage(const ActivityForest& forest, std::ostream& out) {
    constexpr std::string_view dataMark = "@DATA@";
    constexpr std::string_view scriptMark = "@SCRIPT@";
    const std::size_t data = pageText.find(dataMark);
    const std::size_t script = pageText.find(scriptMark);
    std::ostringstream json;
    ReportData(forest).Write(json);
    out << pageText.substr(0, data);
    WriteWithoutMarkup(json.str(), out);
    out << pageText.substr(data + dataMark.size(), script - data - dataMark.size()) << pageScript
        << pageText.substr(script + scriptMark.size());
}

}  // namespace tarnview
