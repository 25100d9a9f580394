#include "encode/WireWriter.h"
#include "export/Exports.h"
#include "export/Gzip.h"
#include "export/ThreadLanes.h"
#include "read/Rounding.h"

#include <algorithm>
#include <array>
#include <map>
#include <ostream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnview {

namespace {

using tarn::otlp::WireWriter;
using Index = ActivityForest::Index;

constexpr std::uint64_t nanosecondsPerMicrosecond = 1000;

// The fields of profile.proto.
namespace profile {
constexpr std::uint32_t sampleType = 1;
constexpr std::uint32_t sample = 2;
constexpr std::uint32_t location = 4;
constexpr std::uint32_t function = 5;
constexpr std::uint32_t text = 6;
constexpr std::uint32_t time = 9;
constexpr std::uint32_t duration = 10;
constexpr std::uint32_t defaultSampleType = 14;
}  // namespace profile

// What each sample has, in this order, with its unit.
constexpr std::array<std::pair<const char*, const char*>, 4> sampleTypes{{{"activities", "count"},
                                                                          {"time", "nanoseconds"},
                                                                          {"cpu", "nanoseconds"},
                                                                          {"memory", "bytes"}}};

class PprofWriter {
public:
    explicit PprofWriter(const ActivityForest& forest) : m_forest(forest) { TextNumber(""); }

    std::string Write() {
        for (const Index top : m_forest.Tops()) {
            Add(top);
        }
        for (const auto& [type, unit] : sampleTypes) {
            std::string value;
            WireWriter(value).VarintField(1, TextNumber(type));
            WireWriter(value).VarintField(2, TextNumber(unit));
            m_profile.BytesField(profile::sampleType, value);
        }
        WriteSamples();
        WriteFunctions();
        const std::uint64_t timeType = TextNumber("time");
        for (const std::string& text : m_texts) {
            m_profile.BytesField(profile::text, text);
        }
        WriteTimes();
        m_profile.VarintField(profile::defaultSampleType, timeType);
        return std::move(m_text);
    }

private:
    using Values = std::array<std::uint64_t, sampleTypes.size()>;

    // A stack is a way from a root: each place knows the one above it, 0 is above all.
    struct StackPlace {
        std::size_t above = 0;
        std::uint64_t function = 0;
        std::size_t depth = 0;
        Values values{};
    };

    void Add(Index top) {
        std::vector<std::size_t> path;
        for (const auto& [index, level] : m_forest.PreOrder(top)) {
            path.resize(level);
            const std::size_t above = path.empty() ? 0 : path.back();
            path.push_back(PlaceOf(above, m_forest[index].name));
            AddValues(index, m_places[path.back()].values);
        }
    }

    // What lies deeper than stacks go belongs to the last that is in.
    std::size_t PlaceOf(std::size_t above, const std::string& name) {
        if (m_places[above].depth == deepestStack) {
            return above;
        }
        const std::uint64_t function = FunctionNumber(name);
        const auto [found, isNew] = m_below.try_emplace({above, function}, m_places.size());
        if (isNew) {
            m_places.push_back({above, function, m_places[above].depth + 1, {}});
        }
        return found->second;
    }

    void AddValues(Index index, Values& values) const {
        const Activity& activity = m_forest[index];
        const auto positive = [](long long number) {
            return static_cast<std::uint64_t>(std::max(number, 0LL));
        };
        values[0] += 1;
        if (activity.hasEnd) {
            values[1] += positive(m_forest.SelfTime(index)) * nanosecondsPerMicrosecond;
        }
        if (activity.figures.hasCpu) {
            values[2] +=
                positive(Rounded(activity.figures.CpuExclusive())) * nanosecondsPerMicrosecond;
        }
        if (activity.figures.hasAllocated) {
            values[3] += positive(Rounded(activity.figures.ae));
        }
    }

    void WriteSamples() {
        for (std::size_t place = 1; place < m_places.size(); ++place) {
            std::string locations;  // the innermost first
            for (std::size_t at = place; at != 0; at = m_places[at].above) {
                WireWriter(locations).Varint(m_places[at].function);
            }
            std::string values;
            for (const std::uint64_t value : m_places[place].values) {
                WireWriter(values).Varint(value);
            }
            std::string sample;
            WireWriter(sample).BytesField(1, locations);
            WireWriter(sample).BytesField(2, values);
            m_profile.BytesField(profile::sample, sample);
        }
    }

    // Each name is a function at a location of its own; both have the same number.
    void WriteFunctions() {
        for (std::uint64_t number = 1; number <= m_functions.size(); ++number) {
            std::string line;
            WireWriter(line).VarintField(1, number);
            std::string location;
            WireWriter(location).VarintField(1, number);
            WireWriter(location).BytesField(4, line);
            m_profile.BytesField(profile::location, location);
            std::string function;
            WireWriter(function).VarintField(1, number);
            WireWriter(function).VarintField(2, m_functionNames[number - 1]);
            m_profile.BytesField(profile::function, function);
        }
    }

    void WriteTimes() {
        Microseconds begin = 0;
        Microseconds end = 0;
        for (Index index = 0; index < m_forest.Size(); ++index) {
            const TimeSpan span = SpanOf(m_forest, index);
            begin = index == 0 ? span.begin : std::min(begin, span.begin);
            end = std::max(end, span.end);
        }
        if (m_forest.Size() != 0) {
            m_profile.VarintField(profile::time,
                                  static_cast<std::uint64_t>(begin) * nanosecondsPerMicrosecond);
            m_profile.VarintField(
                profile::duration,
                static_cast<std::uint64_t>(end - begin) * nanosecondsPerMicrosecond);
        }
    }

    std::uint64_t FunctionNumber(const std::string& name) {
        const auto [found, isNew] = m_functions.try_emplace(name, m_functions.size() + 1);
        if (isNew) {
            m_functionNames.push_back(TextNumber(name));
        }
        return found->second;
    }

    std::uint64_t TextNumber(const std::string& text) {
        const auto [found, isNew] = m_textNumbers.try_emplace(text, m_texts.size());
        if (isNew) {
            m_texts.push_back(text);
        }
        return found->second;
    }

    const ActivityForest& m_forest;
    std::string m_text;
    WireWriter m_profile{m_text};
    std::vector<StackPlace> m_places = std::vector<StackPlace>(1);  // 0: above all
    std::map<std::pair<std::size_t, std::uint64_t>, std::size_t> m_below;
    std::unordered_map<std::string, std::uint64_t> m_functions;
    std::vector<std::uint64_t> m_functionNames;
    std::unordered_map<std::string, std::uint64_t> m_textNumbers;
    std::vector<std::string> m_texts;
};

}  // namespace

void ExportPprof(const ActivityForest& forest, std::ostream& out) {
    WriteGzip(PprofWriter(forest).Write(), out);
}

}  // namespace tarnview
