#include "export/Exports.h"
#include "export/Json.h"
#include "export/ThreadLanes.h"
#include "read/Rounding.h"

#include <algorithm>
#include <set>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

class ChromeWriter {
public:
    ChromeWriter(const ActivityForest& forest, std::ostream& out) : m_forest(forest), m_json(out) {
        for (Index index = 0; index < forest.Size(); ++index) {
            const Microseconds begin = forest[index].begin;
            m_base = index == 0 ? begin : std::min(m_base, begin);
        }
    }

    void Write() {
        m_json.BeginObject();
        m_json.Key("traceEvents");
        m_json.BeginArray();
        const std::vector<ThreadLane> lanes = MakeThreadLanes(m_forest);
        NoteComplete(lanes);
        for (const ThreadLane& lane : lanes) {
            WriteNames(lane);
            for (std::size_t place = 0; place < lane.activities.size(); ++place) {
                if (lane.number == 0) {
                    WriteComplete(lane.activities[place]);
                    WriteHandOvers(lane, place);
                } else {
                    WriteAsynchronous(lane.activities[place]);
                }
            }
        }
        m_json.EndArray();
        m_json.EndObject();
    }

private:
    void WriteNames(const ThreadLane& lane) {
        if (m_processes.insert(lane.process).second) {
            std::string site;
            for (const Index index : lane.activities) {
                site = site.empty() || site == "-" ? m_forest[index].site : site;
            }
            WriteName("process_name", lane, site + " " + std::to_string(lane.process));
        }
        if (lane.number == 0) {
            WriteName("thread_name", lane, "thread " + std::to_string(lane.thread));
        }
    }

    void WriteName(std::string_view kind, const ThreadLane& lane, std::string_view name) {
        m_json.BeginObject();
        m_json.Member("ph", "M");
        m_json.Member("name", kind);
        m_json.Member("pid", lane.process);
        m_json.Member("tid", lane.thread);
        m_json.Key("args");
        m_json.BeginObject();
        m_json.Member("name", name);
        m_json.EndObject();
        m_json.EndObject();
    }

    void BeginEvent(std::string_view phase, const Activity& activity, Microseconds time) {
        m_json.BeginObject();
        m_json.Member("ph", phase);
        m_json.Member("name", activity.name);
        m_json.Member("cat", activity.IsFailure() ? "failed" : "activity");
        m_json.Member("pid", activity.process);
        m_json.Member("tid", activity.beginThread);
        m_json.Member("ts", time - m_base);
    }

    void WriteComplete(Index index) {
        const TimeSpan span = SpanOf(m_forest, index);
        BeginEvent("X", m_forest[index], span.begin);
        m_json.Member("dur", span.end - span.begin);
        WriteArguments(m_forest[index]);
        m_json.EndObject();
    }

    void WriteAsynchronous(Index index) {
        const TimeSpan span = SpanOf(m_forest, index);
        BeginEvent("b", m_forest[index], span.begin);
        m_json.Member("id", m_forest[index].id);
        WriteArguments(m_forest[index]);
        m_json.EndObject();
        BeginEvent("e", m_forest[index], span.end);
        m_json.Member("id", m_forest[index].id);
        m_json.EndObject();
    }

    void NoteComplete(const std::vector<ThreadLane>& lanes) {
        m_isComplete.resize(m_forest.Size());
        for (const ThreadLane& lane : lanes) {
            for (const Index index : lane.activities) {
                m_isComplete[index] = lane.number == 0;
            }
        }
    }

    // An arrow from a sponsor, which has to be running, to work on another thread.
    bool IsHandedOver(Index index) const {
        const Index parent = m_forest.ParentOf(index);
        if (parent == ActivityForest::none || !m_isComplete[parent] || !m_isComplete[index]) {
            return false;
        }
        const Activity& from = m_forest[parent];
        const Activity& to = m_forest[index];
        const TimeSpan span = SpanOf(m_forest, parent);
        const bool isSameThread = from.process == to.process && from.beginThread == to.beginThread;
        return !isSameThread && span.begin <= to.begin && to.begin <= span.end;
    }

    // Readers tie the ends of an arrow to what was begun last on the thread, whether or not that
    // has ended. So an arrow leaves its sponsor before anything else begins there; and before it
    // arrives, for they take events of the same time as they stand in the file.
    void WriteHandOvers(const ThreadLane& lane, std::size_t place) {
        const Index index = lane.activities[place];
        const TimeSpan span = SpanOf(m_forest, index);
        auto latest = static_cast<double>(span.end);
        if (place + 1 < lane.activities.size()) {
            const Index next = lane.activities[place + 1];
            latest = std::min(latest, static_cast<double>(m_forest[next].begin) - 0.5);
        }
        for (const Index child : m_forest.ChildrenOf(index)) {
            if (IsHandedOver(child)) {
                const double arrival = static_cast<double>(m_forest[child].begin) - 0.5;
                const double time =
                    std::max(std::min(arrival, latest), static_cast<double>(span.begin));
                WriteFlow("s", child, m_forest[index], time);
            }
        }
        if (IsHandedOver(index)) {
            WriteFlow("f", index, m_forest[index], static_cast<double>(span.begin));
        }
    }

    void WriteFlow(std::string_view phase, Index child, const Activity& activity, double time) {
        m_json.BeginObject();
        m_json.Member("ph", phase);
        m_json.Member("name", "hand-over");
        m_json.Member("cat", "hand-over");
        m_json.Member("id", static_cast<long long>(child) + 1);
        m_json.Member("pid", activity.process);
        m_json.Member("tid", activity.beginThread);
        m_json.Key("ts");
        m_json.Number(time - static_cast<double>(m_base));
        if (phase == "f") {
            m_json.Member("bp", "e");
        }
        m_json.EndObject();
    }

    void WriteArguments(const Activity& activity) {
        m_json.Key("args");
        m_json.BeginObject();
        WriteText("id", activity.id);
        WriteText("root", activity.root);
        WriteText("sponsor", activity.sponsor);
        WriteText("request", activity.request);
        WriteText("user", activity.user);
        WriteText("site", activity.site);
        WriteText("req-desc", activity.description);
        m_json.Member("result", activity.hasEnd ? activity.result : "never ended");
        WriteText("result-details", activity.resultDetails == "{}" ? "" : activity.resultDetails);
        if (activity.hasEnd) {
            m_json.Member("elapsed-ms", Rounded(activity.elapsed * 1e3));
            m_json.Member("exclusive-ms", Rounded(activity.exclusive * 1e3));
        }
        if (activity.figures.isPresent) {
            m_json.Member("allocated-bytes", Rounded(activity.figures.ai));
            m_json.Member("allocated-exclusive-bytes", Rounded(activity.figures.ae));
            m_json.Member("cpu-us", Rounded(activity.figures.CpuInclusive()));
            m_json.Member("cpu-exclusive-us", Rounded(activity.figures.CpuExclusive()));
        }
        m_json.EndObject();
    }

    void WriteText(std::string_view name, const std::string& text) {
        if (!text.empty() && text != "-") {
            m_json.Member(name, text);
        }
    }

    const ActivityForest& m_forest;
    Json m_json;
    Microseconds m_base = 0;
    std::vector<bool> m_isComplete;  // by index; the others are asynchronous
    std::set<std::int64_t> m_processes;
};

}  // namespace

void ExportChrome(const ActivityForest& forest, std::ostream& out) {
    ChromeWriter(forest, out).Write();
    out << '\n';
}

}  // namespace tarnview
