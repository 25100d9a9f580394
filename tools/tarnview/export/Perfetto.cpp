#include "encode/WireWriter.h"
#include "export/ActivityArguments.h"
#include "export/Exports.h"
#include "export/ProcessNumbers.h"
#include "export/ThreadLanes.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

namespace {

using tarn::otlp::WireWriter;
using Index = ActivityForest::Index;

// The fields of trace_packet.proto, track_descriptor.proto, track_event.proto and
// clock_snapshot.proto that are used.
namespace packet {
constexpr unsigned inTrace = 1;
constexpr unsigned clockSnapshot = 6;
constexpr unsigned timestamp = 8;
constexpr unsigned sequence = 10;
constexpr unsigned trackEvent = 11;
constexpr unsigned trackDescriptor = 60;
}  // namespace packet

namespace track {
constexpr unsigned uuid = 1;
constexpr unsigned name = 2;
constexpr unsigned process = 3;  // pid 1, name 6
constexpr unsigned thread = 4;   // pid 1, tid 2, name 5
constexpr unsigned parent = 5;
}  // namespace track

namespace event {
constexpr unsigned annotation = 4;  // integer 4, text 6, name 10
constexpr unsigned type = 9;
constexpr unsigned trackUuid = 11;
constexpr unsigned category = 22;
constexpr unsigned name = 23;
constexpr unsigned flow = 36;  // which all versions read; 47 and 48 have come later
constexpr unsigned lastOfFlow = 42;
constexpr std::uint64_t begin = 1;
constexpr std::uint64_t end = 2;
}  // namespace event

constexpr std::uint64_t nanosecondsPerMicrosecond = 1000;
constexpr std::uint64_t onlySequence = 1;

std::uint64_t Nanoseconds(Microseconds time) {
    return static_cast<std::uint64_t>(std::max<Microseconds>(time, 0)) * nanosecondsPerMicrosecond;
}

class AnnotationSink : public ArgumentSink {
public:
    explicit AnnotationSink(WireWriter& writer) : m_event(writer) {}

    void Text(std::string_view name, std::string_view text) override {
        constexpr unsigned stringValue = 6;
        Add(name, [&](WireWriter& writer) { writer.BytesField(stringValue, text); });
    }

    void Number(std::string_view name, std::int64_t number) override {
        constexpr unsigned intValue = 4;
        Add(name, [&](WireWriter& writer) {
            writer.VarintField(intValue, static_cast<std::uint64_t>(number));
        });
    }

    void Table(std::string_view name, std::string_view json) override { Text(name, json); }

private:
    template <class Write>
    void Add(std::string_view name, const Write& write) {
        constexpr unsigned nameField = 10;
        std::string annotation;
        WireWriter writer(annotation);
        write(writer);
        writer.BytesField(nameField, name);
        m_event.BytesField(event::annotation, annotation);
    }

    WireWriter& m_event;
};

// A track for each process, one for each thread below it, and below that one for each lane of what
// crosses other work of the thread. Slices are pairs of events; on a track they nest.
class PerfettoWriter {
public:
    explicit PerfettoWriter(const ActivityForest& forest)
        : m_forest(forest),
          m_numbers(forest),
          m_lanes(MakeThreadLanes(forest)),
          m_laneOf(forest.Size()) {}

    std::string Write() {
        WriteClocks();
        for (std::size_t number = 0; number < m_lanes.size(); ++number) {
            WriteTracks(m_lanes[number]);
            TakeEvents(number);
        }
        // Of one time they stay in the order of their lane, in which they nest.
        std::stable_sort(m_events.begin(), m_events.end(), [](const Event& a, const Event& b) {
            return a.time < b.time;
        });
        for (const Event& it : m_events) {
            WriteEvent(it);
        }
        return std::move(m_text);
    }

private:
    struct Event {
        Microseconds time = 0;
        Index index = 0;
        bool isBegin = false;
    };

    void WritePacket(std::string_view packet) { m_trace.BytesField(packet::inTrace, packet); }

    // Times are those of the log's clock, which is the real time.
    void WriteClocks() {
        constexpr std::uint64_t realTime = 1;
        constexpr std::uint64_t bootTime = 6;  // in which packets have their times
        Microseconds begin = 0;
        for (Index index = 0; index < m_forest.Size(); ++index) {
            const Microseconds own = SpanOf(m_forest, index).begin;
            begin = index == 0 ? own : std::min(begin, own);
        }
        std::string snapshot;
        for (const std::uint64_t clock : {bootTime, realTime}) {
            std::string it;
            WireWriter(it).VarintField(1, clock);
            WireWriter(it).VarintField(2, Nanoseconds(begin));
            WireWriter(snapshot).BytesField(1, it);
        }
        std::string text;
        WireWriter(text).BytesField(packet::clockSnapshot, snapshot);
        WritePacket(text);
    }

    void WriteTracks(const ThreadLane& lane) {
        const auto number = static_cast<std::uint64_t>(m_numbers.Of(lane.process));
        const auto [process, isNewProcess] = m_processes.try_emplace(lane.process, m_tracks + 1);
        if (isNewProcess) {
            std::string site;
            for (const Index index : lane.activities) {
                site = site.empty() || site == "-" ? m_forest[index].site : site;
            }
            std::string descriptor;
            WireWriter(descriptor).VarintField(1, number);
            WireWriter(descriptor).BytesField(6, site + " " + ProcessName(lane.process));
            WriteTrack(0, track::process, descriptor);
        }
        const std::string thread = "thread " + std::to_string(lane.thread);
        const auto [known, isNewThread] =
            m_threads.try_emplace({lane.process, lane.thread}, m_tracks + 1);
        if (isNewThread) {
            std::string descriptor;
            WireWriter(descriptor).VarintField(1, number);
            WireWriter(descriptor).VarintField(2, static_cast<std::uint64_t>(lane.thread));
            WireWriter(descriptor).BytesField(5, thread);
            WriteTrack(process->second, track::thread, descriptor);
        }
        if (lane.number == 0) {
            m_laneTracks.push_back(known->second);
        } else {
            WriteTrack(
                process->second, track::name, thread + " overlap " + std::to_string(lane.number));
            m_laneTracks.push_back(m_tracks);
        }
    }

    void WriteTrack(std::uint64_t parent, unsigned field, std::string_view content) {
        std::string descriptor;
        WireWriter writer(descriptor);
        writer.VarintField(track::uuid, ++m_tracks);
        writer.BytesField(field, content);
        if (parent != 0) {
            writer.VarintField(track::parent, parent);
        }
        std::string text;
        WireWriter(text).VarintField(packet::sequence, onlySequence);
        WireWriter(text).BytesField(packet::trackDescriptor, descriptor);
        WritePacket(text);
    }

    void TakeEvents(std::size_t number) {
        std::vector<Index> open;
        const auto endUntil = [&](Microseconds time) {
            while (!open.empty() && SpanOf(m_forest, open.back()).end <= time) {
                m_events.push_back({SpanOf(m_forest, open.back()).end, open.back(), false});
                open.pop_back();
            }
        };
        for (const Index index : m_lanes[number].activities) {
            const TimeSpan span = SpanOf(m_forest, index);
            endUntil(span.begin);
            m_laneOf[index] = number;
            m_events.push_back({span.begin, index, true});
            if (span.end == span.begin) {
                m_events.push_back({span.end, index, false});
            } else {
                open.push_back(index);
            }
        }
        while (!open.empty()) {
            endUntil(SpanOf(m_forest, open.back()).end);
        }
    }

    void WriteEvent(const Event& it) {
        std::string text;
        WireWriter writer(text);
        writer.VarintField(event::type, it.isBegin ? event::begin : event::end);
        writer.VarintField(event::trackUuid, m_laneTracks[m_laneOf[it.index]]);
        if (it.isBegin) {
            const Activity& activity = m_forest[it.index];
            writer.BytesField(event::category, activity.IsFailure() ? "failed" : "activity");
            writer.BytesField(event::name, activity.name);
            WriteFlows(it.index, writer);
            AnnotationSink sink(writer);
            m_arguments.Give(m_forest, it.index, sink);
        }
        std::string packet;
        WireWriter(packet).VarintField(packet::timestamp, Nanoseconds(it.time));
        WireWriter(packet).VarintField(packet::sequence, onlySequence);
        WireWriter(packet).BytesField(packet::trackEvent, text);
        WritePacket(packet);
    }

    // Work that was handed to another thread or process; a flow must be seen to begin before it
    // ends.
    bool IsHandedOver(Index index) const {
        const Index parent = m_forest.ParentOf(index);
        if (parent == ActivityForest::none) {
            return false;
        }
        const Activity& from = m_forest[parent];
        const Activity& to = m_forest[index];
        const bool isSameThread = from.process == to.process && from.beginThread == to.beginThread;
        return !isSameThread && (from.begin < to.begin ||
                                 (from.begin == to.begin && m_laneOf[parent] < m_laneOf[index]));
    }

    void WriteFlows(Index index, WireWriter& writer) const {
        for (const Index child : m_forest.ChildrenOf(index)) {
            if (IsHandedOver(child)) {
                writer.VarintField(event::flow, child + 1);
            }
        }
        if (IsHandedOver(index)) {
            writer.VarintField(event::lastOfFlow, index + 1);
        }
    }

    const ActivityForest& m_forest;
    const ProcessNumbers m_numbers;
    std::vector<ThreadLane> m_lanes;
    std::vector<std::size_t> m_laneOf;        // of each activity
    std::vector<std::uint64_t> m_laneTracks;  // of each lane
    std::map<ProcessId, std::uint64_t> m_processes;
    std::map<std::pair<ProcessId, std::int64_t>, std::uint64_t> m_threads;
    std::uint64_t m_tracks = 0;  // so many; each has its number as its id
    std::vector<Event> m_events;
    ActivityArguments m_arguments;
    std::string m_text;
    WireWriter m_trace{m_text};
};

}  // namespace

void ExportPerfetto(const ActivityForest& forest, std::ostream& out) {
    out << PerfettoWriter(forest).Write();
}

}  // namespace tarnview
