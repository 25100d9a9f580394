#include "export/ActivityArguments.h"
#include "export/Exports.h"
#include "export/Json.h"
#include "export/ProcessNumbers.h"
#include "export/ThreadLanes.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

class ChromeWriter {
public:
    ChromeWriter(const ActivityForest& forest, std::ostream& out)
        : m_forest(forest),
          m_numbers(forest),
          m_json(out) {
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
        TakePlaces(lanes);
        for (const ThreadLane& lane : lanes) {
            WriteNames(lane);
        }
        for (const Index index : InOrderOfArrows(lanes)) {
            if (m_places[index].isComplete) {
                WriteComplete(index);
                WriteHandOvers(index);
            } else {
                WriteAsynchronous(index);
            }
        }
        m_json.EndArray();
        // Times are those since then.
        m_json.Key("otherData");
        m_json.BeginObject();
        m_json.Member("begin", FormatTimestamp(m_base));
        m_json.EndObject();
        m_json.EndObject();
    }

private:
    enum class Progress : char { Untouched, Waiting, Done };

    struct Place {
        bool isComplete = false;              // else it is asynchronous
        Index before = ActivityForest::none;  // in its lane
        Index after = ActivityForest::none;
    };

    void WriteNames(const ThreadLane& lane) {
        if (m_processes.insert(lane.process).second) {
            std::string site;
            for (const Index index : lane.activities) {
                site = site.empty() || site == "-" ? m_forest[index].site : site;
            }
            WriteName("process_name", lane, site + " " + ProcessName(lane.process));
        }
        if (lane.number == 0) {
            WriteName("thread_name", lane, "thread " + std::to_string(lane.thread));
        }
    }

    void WriteName(std::string_view kind, const ThreadLane& lane, std::string_view name) {
        m_json.BeginObject();
        m_json.Member("ph", "M");
        m_json.Member("name", kind);
        m_json.Member("pid", m_numbers.Of(lane.process));
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
        m_json.Member("pid", m_numbers.Of(activity.process));
        m_json.Member("tid", activity.beginThread);
        m_json.Member("ts", time - m_base);
    }

    void WriteComplete(Index index) {
        const TimeSpan span = SpanOf(m_forest, index);
        BeginEvent("X", m_forest[index], span.begin);
        m_json.Member("dur", span.end - span.begin);
        WriteArguments(index);
        m_json.EndObject();
    }

    void WriteAsynchronous(Index index) {
        const TimeSpan span = SpanOf(m_forest, index);
        BeginEvent("b", m_forest[index], span.begin);
        m_json.Member("id", m_forest[index].id);
        WriteArguments(index);
        m_json.EndObject();
        BeginEvent("e", m_forest[index], span.end);
        m_json.Member("id", m_forest[index].id);
        m_json.EndObject();
    }

    void TakePlaces(const std::vector<ThreadLane>& lanes) {
        m_places.resize(m_forest.Size());
        for (const ThreadLane& lane : lanes) {
            Index before = ActivityForest::none;
            for (const Index index : lane.activities) {
                m_places[index] = {lane.number == 0, before, ActivityForest::none};
                if (before != ActivityForest::none) {
                    m_places[before].after = index;
                }
                before = index;
            }
        }
    }

    // All activities by the time of their begin. Readers keep the file's order for events
    // of one time: of what begins at once, each is written after what is before it on its thread,
    // and after what handed it over, so that an arrow is found to leave before it arrives.
    std::vector<Index> InOrderOfArrows(const std::vector<ThreadLane>& lanes) const {
        std::vector<Index> byTime;
        byTime.reserve(m_forest.Size());
        for (const ThreadLane& lane : lanes) {
            byTime.insert(byTime.end(), lane.activities.begin(), lane.activities.end());
        }
        std::stable_sort(byTime.begin(), byTime.end(), [this](Index a, Index b) {
            return m_forest[a].begin < m_forest[b].begin;
        });
        std::vector<Index> order;
        order.reserve(byTime.size());
        std::vector<Progress> progress(m_forest.Size(), Progress::Untouched);
        std::vector<Index> waiting;
        for (const Index first : byTime) {
            waiting.push_back(first);
            while (!waiting.empty()) {
                const Index index = waiting.back();
                if (progress[index] == Progress::Untouched) {
                    progress[index] = Progress::Waiting;
                    PushWhatComesFirst(index, progress, waiting);
                    continue;
                }
                waiting.pop_back();
                Append(index, progress, order);
            }
        }
        return order;
    }

    // What already waits for this one, in a circle, is left where it is.
    void PushWhatComesFirst(Index index,
                            const std::vector<Progress>& progress,
                            std::vector<Index>& waiting) const {
        const auto pushIfAtOnce = [&](Index other) {
            if (other != ActivityForest::none && progress[other] == Progress::Untouched &&
                m_forest[other].begin == m_forest[index].begin) {
                waiting.push_back(other);
            }
        };
        pushIfAtOnce(IsHandedOver(index) ? m_forest.ParentOf(index) : ActivityForest::none);
        pushIfAtOnce(m_places[index].before);
    }

    // Nesting is read from the order within a thread, so what precedes it there precedes it here,
    // even if its own arrow then arrives too early.
    void Append(Index index, std::vector<Progress>& progress, std::vector<Index>& order) const {
        std::vector<Index> missing;
        while (index != ActivityForest::none && progress[index] != Progress::Done) {
            missing.push_back(index);
            progress[index] = Progress::Done;
            index = m_places[index].before;
        }
        order.insert(order.end(), missing.rbegin(), missing.rend());
    }

    // An arrow from a sponsor to work on another thread. The sponsor may have ended before that
    // begins.
    bool IsHandedOver(Index index) const {
        const Index parent = m_forest.ParentOf(index);
        if (parent == ActivityForest::none || !m_places[parent].isComplete ||
            !m_places[index].isComplete) {
            return false;
        }
        const Activity& from = m_forest[parent];
        const Activity& to = m_forest[index];
        const bool isSameThread = from.process == to.process && from.beginThread == to.beginThread;
        return !isSameThread && from.begin <= to.begin;
    }

    // Readers tie the ends of an arrow to what was begun last on the thread, whether or not that
    // has ended. So an arrow leaves its sponsor before anything else begins there; and before it
    // arrives, for readers keep the file's order for events of the same time.
    void WriteHandOvers(Index index) {
        const TimeSpan span = SpanOf(m_forest, index);
        double latest = static_cast<double>(span.end) - 0.5;
        if (const Index next = m_places[index].after; next != ActivityForest::none) {
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
        m_json.Member("pid", m_numbers.Of(activity.process));
        m_json.Member("tid", activity.beginThread);
        m_json.Key("ts");
        m_json.Number(time - static_cast<double>(m_base));
        if (phase == "f") {
            m_json.Member("bp", "e");
        }
        m_json.EndObject();
    }

    void WriteArguments(Index index) {
        class JsonSink : public ArgumentSink {
        public:
            explicit JsonSink(Json& json) : m_json(json) {}

            void Text(std::string_view name, std::string_view text) override {
                m_json.Member(name, text);
            }

            void Number(std::string_view name, std::int64_t number) override {
                m_json.Member(name, static_cast<long long>(number));
            }

            void Table(std::string_view name, std::string_view json) override {
                m_json.Key(name);
                m_json.Raw(json);
            }

        private:
            Json& m_json;
        };

        m_json.Key("args");
        m_json.BeginObject();
        JsonSink sink(m_json);
        m_arguments.Give(m_forest, index, sink);
        m_json.EndObject();
    }

    const ActivityForest& m_forest;
    const ProcessNumbers m_numbers;
    Json m_json;
    Microseconds m_base = 0;
    std::vector<Place> m_places;  // by index
    std::set<ProcessId> m_processes;
    ActivityArguments m_arguments;
};

}  // namespace

void ExportChrome(const ActivityForest& forest, std::ostream& out) {
    ChromeWriter(forest, out).Write();
    out << '\n';
}

}  // namespace tarnview
