#include "export/Exports.h"
#include "export/Protobuf.h"
#include "export/ThreadLanes.h"
#include "read/Rounding.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnview {

namespace {

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
            Protobuf value;
            value.Integer(1, TextNumber(type));
            value.Integer(2, TextNumber(unit));
            m_profile.Message(profile::sampleType, value);
        }
        WriteSamples();
        WriteFunctions();
        const std::uint64_t timeType = TextNumber("time");
        for (const std::string& text : m_texts) {
            m_profile.Bytes(profile::text, text);
        }
        WriteTimes();
        m_profile.Integer(profile::defaultSampleType, timeType);
        return m_profile.Text();
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
            Protobuf locations;  // the innermost first
            for (std::size_t at = place; at != 0; at = m_places[at].above) {
                locations.Varint(m_places[at].function);
            }
            Protobuf values;
            for (const std::uint64_t value : m_places[place].values) {
                values.Varint(value);
            }
            Protobuf sample;
            sample.Message(1, locations);
            sample.Message(2, values);
            m_profile.Message(profile::sample, sample);
        }
    }

    // Each name is a function at a location of its own; both have the same number.
    void WriteFunctions() {
        for (std::uint64_t number = 1; number <= m_functions.size(); ++number) {
            Protobuf line;
            line.Integer(1, number);
            Protobuf location;
            location.Integer(1, number);
            location.Message(4, line);
            m_profile.Message(profile::location, location);
            Protobuf function;
            function.Integer(1, number);
            function.Integer(2, m_functionNames[number - 1]);
            m_profile.Message(profile::function, function);
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
            m_profile.Integer(profile::time,
                              static_cast<std::uint64_t>(begin) * nanosecondsPerMicrosecond);
            m_profile.Integer(profile::duration,
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
    Protobuf m_profile;
    std::vector<StackPlace> m_places = std::vector<StackPlace>(1);  // 0: above all
    std::map<std::pair<std::size_t, std::uint64_t>, std::size_t> m_below;
    std::unordered_map<std::string, std::uint64_t> m_functions;
    std::vector<std::uint64_t> m_functionNames;
    std::unordered_map<std::string, std::uint64_t> m_textNumbers;
    std::vector<std::string> m_texts;
};

la_ssize_t WriteTo(archive* /*writer*/, void* out, const void* data, std::size_t size) {
    static_cast<std::ostream*>(out)->write(static_cast<const char*>(data),
                                           static_cast<std::streamsize>(size));
    return static_cast<la_ssize_t>(size);
}

void WriteGzip(const std::string& text, std::ostream& out) {
    const std::unique_ptr<archive, int (*)(archive*)> writer(archive_write_new(),
                                                             archive_write_free);
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                         archive_entry_free);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    // Without the time, so that the same log makes the same file.
    const bool isWritten =
        archive_write_add_filter_gzip(writer.get()) == ARCHIVE_OK &&
        archive_write_set_filter_option(writer.get(), "gzip", "timestamp", nullptr) == ARCHIVE_OK &&
        archive_write_set_format_raw(writer.get()) == ARCHIVE_OK &&
        archive_write_set_bytes_in_last_block(writer.get(), 1) == ARCHIVE_OK &&
        archive_write_open(writer.get(), &out, nullptr, WriteTo, nullptr) == ARCHIVE_OK &&
        archive_write_header(writer.get(), entry.get()) == ARCHIVE_OK &&
        archive_write_data(writer.get(), text.data(), text.size()) ==
            static_cast<la_ssize_t>(text.size()) &&
        archive_write_close(writer.get()) == ARCHIVE_OK;
    if (!isWritten) {
        const char* const error = archive_error_string(writer.get());
        throw std::runtime_error(std::string("gzip: ") + (error == nullptr ? "failed" : error));
    }
}

}  // namespace

void ExportPprof(const ActivityForest& forest, std::ostream& out) {
    WriteGzip(PprofWriter(forest).Write(), out);
}

}  // namespace tarnview
