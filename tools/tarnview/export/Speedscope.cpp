#include "export/Exports.h"
#include "export/Json.h"
#include "export/ThreadLanes.h"
#include "read/Rounding.h"

#include <algorithm>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

constexpr long long nanosecondsPerMicrosecond = 1000;

class SpeedscopeWriter {
public:
    SpeedscopeWriter(const ActivityForest& forest, std::ostream& out)
        : m_forest(forest),
          m_json(out) {
        for (Index index = 0; index < forest.Size(); ++index) {
            const std::string& name = forest[index].name;
            if (m_frames.emplace(name, m_names.size()).second) {
                m_names.push_back(name);
            }
            if (const std::string& site = forest[index].site; !site.empty() && site != "-") {
                m_sites.emplace(forest[index].process, site);
            }
            const TimeSpan span = SpanOf(forest, index);
            m_base = index == 0 ? span.begin : std::min(m_base, span.begin);
            m_end = std::max(m_end, span.end);
        }
    }

    void Write() {
        m_json.BeginObject();
        m_json.Member("$schema", "https://www.speedscope.app/file-format-schema.json");
        m_json.Member("exporter", "tarnview");
        m_json.Member("name", "activities");
        m_json.Key("shared");
        m_json.BeginObject();
        m_json.Key("frames");
        m_json.BeginArray();
        for (const std::string& name : m_names) {
            m_json.BeginObject();
            m_json.Member("name", name);
            m_json.EndObject();
        }
        m_json.EndArray();
        m_json.EndObject();
        m_json.Key("profiles");
        m_json.BeginArray();
        const std::vector<ThreadLane> lanes = MakeThreadLanes(m_forest);
        for (const ThreadLane& lane : lanes) {
            WriteLane(lane);
        }
        WriteMemory();
        m_json.EndArray();
        // Which one is open at first: not an idle one.
        const auto busiest =
            std::max_element(lanes.begin(), lanes.end(), [this](const auto& a, const auto& b) {
                return BusyTime(a) < BusyTime(b);
            });
        m_json.Member("activeProfileIndex", static_cast<long long>(busiest - lanes.begin()));
        m_json.EndObject();
    }

private:
    // In which anything of the lane ran.
    Microseconds BusyTime(const ThreadLane& lane) const {
        Microseconds time = 0;
        Microseconds until = 0;
        for (const Index index : lane.activities) {
            const TimeSpan span = SpanOf(m_forest, index);
            time += std::max<Microseconds>(0, span.end - std::max(span.begin, until));
            until = std::max(until, span.end);
        }
        return time;
    }

    std::string NameOf(const ThreadLane& lane) const {
        return SiteOf(lane.process) + "process " + ProcessName(lane.process) + " thread " +
               std::to_string(lane.thread) +
               (lane.number == 0 ? "" : " overlapping " + std::to_string(lane.number));
    }

    // To be put before the process; empty if it has none.
    std::string SiteOf(const ProcessId& process) const {
        const auto found = m_sites.find(process);
        return found == m_sites.end() ? "" : found->second + " ";
    }

    long long Nanoseconds(Microseconds time) const {
        return (time - m_base) * nanosecondsPerMicrosecond;
    }

    void WriteHeader(std::string_view type, std::string_view name, std::string_view unit) {
        m_json.Member("type", type);
        m_json.Member("name", name);
        m_json.Member("unit", unit);
    }

    void WriteEvent(std::string_view type, Index index, Microseconds time) {
        m_json.BeginObject();
        m_json.Member("type", type);
        m_json.Member("frame", static_cast<long long>(m_frames.at(m_forest[index].name)));
        m_json.Member("at", Nanoseconds(time));
        m_json.EndObject();
    }

    void WriteLane(const ThreadLane& lane) {
        m_json.BeginObject();
        WriteHeader("evented", NameOf(lane), "nanoseconds");
        Microseconds end = m_base;
        for (const Index index : lane.activities) {
            end = std::max(end, SpanOf(m_forest, index).end);
        }
        m_json.Member("startValue", Nanoseconds(SpanOf(m_forest, lane.activities[0]).begin));
        m_json.Member("endValue", Nanoseconds(end));
        m_json.Key("events");
        m_json.BeginArray();
        std::vector<Index> open;
        const auto closeUntil = [&](Microseconds time) {
            while (!open.empty() && SpanOf(m_forest, open.back()).end <= time) {
                WriteEvent("C", open.back(), SpanOf(m_forest, open.back()).end);
                open.pop_back();
            }
        };
        for (const Index index : lane.activities) {
            const TimeSpan span = SpanOf(m_forest, index);
            closeUntil(span.begin);
            WriteEvent("O", index, span.begin);
            open.push_back(index);
        }
        closeUntil(m_end);
        m_json.EndArray();
        m_json.EndObject();
    }

    using Stack = std::vector<std::size_t>;
    using WeightsByStack = std::map<Stack, long long>;

    // A stack holds the frames from the top of the tree down, within the process.
    void AddMemory(Index top, std::map<ProcessId, WeightsByStack>& processes) const {
        Stack frames;                     // down to each level
        std::vector<std::size_t> starts;  // at each level: where the process's part begins
        for (const auto& [index, level] : m_forest.PreOrder(top)) {
            const Activity& activity = m_forest[index];
            frames.resize(level);
            starts.resize(level);
            frames.push_back(m_frames.at(activity.name));
            const bool goesOn =
                level != 0 && m_forest[m_forest.ParentOf(index)].process == activity.process;
            starts.push_back(goesOn ? starts.back() : level);
            const long long bytes = Rounded(activity.figures.ae);
            if (bytes > 0) {
                const std::size_t depth = std::min(level + 1 - starts.back(), deepestStack);
                const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(starts.back());
                const Stack stack(begin, begin + static_cast<std::ptrdiff_t>(depth));
                processes[activity.process][stack] += bytes;
            }
        }
    }

    void WriteMemory() {
        std::map<ProcessId, WeightsByStack> processes;
        for (const Index top : m_forest.Tops()) {
            AddMemory(top, processes);
        }
        for (const auto& [process, stacks] : processes) {
            m_json.BeginObject();
            WriteHeader("sampled",
                        SiteOf(process) + "process " + ProcessName(process) + " memory allocated",
                        "bytes");
            long long total = 0;
            m_json.Key("samples");
            m_json.BeginArray();
            for (const auto& [stack, bytes] : stacks) {
                m_json.BeginArray();
                for (const std::size_t frame : stack) {
                    m_json.Number(static_cast<long long>(frame));
                }
                m_json.EndArray();
                total += bytes;
            }
            m_json.EndArray();
            m_json.Key("weights");
            m_json.BeginArray();
            for (const auto& [stack, bytes] : stacks) {
                m_json.Number(bytes);
            }
            m_json.EndArray();
            m_json.Member("startValue", 0LL);
            m_json.Member("endValue", total);
            m_json.EndObject();
        }
    }

    const ActivityForest& m_forest;
    Json m_json;
    std::unordered_map<std::string, std::size_t> m_frames;
    std::vector<std::string> m_names;
    std::map<ProcessId, std::string> m_sites;  // of processes
    Microseconds m_base = 0;
    Microseconds m_end = 0;
};

}  // namespace

void ExportSpeedscope(const ActivityForest& forest, std::ostream& out) {
    SpeedscopeWriter(forest, out).Write();
    out << '\n';
}

}  // namespace tarnview
