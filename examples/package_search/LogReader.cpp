#include "LogReader.h"

#include "ActivityNames.h"

#include "tarn/ActivityTokens.h"

#include "cvlcoreplatform/TString.h"

#include <simdjson.h>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace packagesearch {

namespace {

using simdjson::dom::element;
using simdjson::dom::object;

// The fields of a line; those of its tables are named by the tokens.
constexpr std::string_view timeField = "time";
constexpr std::string_view processField = "pid";
constexpr std::string_view threadField = "tid";
constexpr std::string_view sessionField = "session";
constexpr std::string_view requestField = "request";
constexpr std::string_view userField = "user";
constexpr std::string_view siteField = "site";
constexpr std::string_view activityField = "activity";
constexpr std::string_view bodyField = "body";

std::string Utf8(const wchar_t* token) {
    return TString(token).ToUtf8();
}

// What a line does not hold, or holds as something else, reads as empty.
std::string Text(const object& table, std::string_view name) {
    std::string_view text;
    return table[name].get(text) == simdjson::SUCCESS ? std::string(text) : std::string();
}

double Number(const object& table, std::string_view name) {
    double number = 0;
    return table[name].get(number) == simdjson::SUCCESS ? number : 0;
}

std::uint64_t Integer(const object& table, std::string_view name) {
    std::uint64_t number = 0;
    return table[name].get(number) == simdjson::SUCCESS ? number : 0;
}

object Table(const object& line, std::string_view name) {
    object table;
    if (const auto error = line[name].get(table)) {
        throw simdjson::simdjson_error(error);
    }
    return table;
}

std::string ToText(const element& value) {
    if (value.is_string()) {
        return std::string(std::string_view(value));
    }
    return simdjson::minify(value);
}

void AppendPair(std::string& text, std::string_view name, const element& value) {
    text.append(text.empty() ? "" : " ").append(name).append("=").append(ToText(value));
}

}  // namespace

class LogReader::Lines {
public:
    explicit Lines(std::optional<std::uint32_t> process) : m_process(process) {}

    // The text must be followed by as many bytes as the parser may read ahead.
    void ReadLines(std::string_view text) {
        while (!text.empty()) {
            const std::size_t end = text.find('\n');
            ReadLine(text.substr(0, end));
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        }
    }

    LogReport Finish() {
        m_report.LinkChildren();
        return std::move(m_report);
    }

private:
    void ReadLine(std::string_view text) {
        try {
            object line;
            if (const auto error = m_parser.parse(text.data(), text.size(), false).get(line)) {
                throw simdjson::simdjson_error(error);
            }
            if (!m_process || Integer(line, processField) == *m_process) {
                ReadOwnLine(line);
            }
        } catch (const simdjson::simdjson_error&) {
            ++m_report.unreadableLines;
        }
    }

    void ReadOwnLine(const object& line) {
        const bool isOfActivity = line[activityField].error() == simdjson::SUCCESS;
        if (!isOfActivity) {
            ++m_report.otherLines;
            return;
        }
        const object fields = Table(line, activityField);
        const std::string phase = Text(fields, m_phase);
        LoggedActivity& activity = Activity(Text(fields, m_id));
        if (phase == m_beginPhase) {
            ++m_report.beginLines;
            ReadBegin(line, fields, activity);
        } else if (phase == m_endPhase) {
            ++m_report.endLines;
            ReadEnd(line, fields, activity);
        }
        AddAttributes(Table(line, bodyField), activity);
    }

    LoggedActivity& Activity(const std::string& id) {
        const auto [place, isNew] = m_indexById.emplace(id, m_report.activities.size());
        if (isNew) {
            m_report.activities.emplace_back().id = id;
        }
        return m_report.activities[place->second];
    }

    void ReadBegin(const object& line, const object& fields, LoggedActivity& activity) const {
        activity.name = Text(fields, m_name);
        activity.sponsor = Text(fields, m_sponsor);
        activity.root = Text(fields, m_root);
        if (activity.root.empty()) {
            activity.root = activity.id;
        }
        activity.depth = static_cast<std::int64_t>(Integer(fields, m_depth));
        activity.processId = Integer(line, processField);
        activity.description = Text(fields, m_description);
        activity.begin = Text(line, timeField);
        activity.threadId = Integer(line, threadField);
        activity.request = Text(line, requestField);
        activity.user = Text(line, userField);
        activity.site = Text(line, siteField);
        activity.session = Text(line, sessionField);
    }

    void ReadEnd(const object& line, const object& fields, LoggedActivity& activity) const {
        activity.end = Text(line, timeField);
        activity.threadId = Integer(line, threadField);
        activity.elapsed = Number(fields, m_elapsed);
        activity.exclusive = Number(fields, m_exclusive);
        activity.result = Text(fields, m_result);
        object details;
        if (fields[m_resultValue].get(details) == simdjson::SUCCESS) {
            for (const auto field : details) {
                AppendPair(activity.resultDetails, field.key, field.value);
            }
        }
        activity.figures = ReadFigures(fields);
    }

    LoggedFigures ReadFigures(const object& fields) const {
        const auto read = [&](const std::string& group, const std::string& name) {
            double number = 0;
            const auto error = fields[m_resources][group][name].get(number);
            return error == simdjson::SUCCESS ? static_cast<std::int64_t>(number) : 0;
        };
        LoggedFigures figures;
        figures.allocated = read(m_alloc, m_allocated);
        figures.allocatedExclusive = read(m_alloc, m_allocatedExclusive);
        figures.allocatedPeak = read(m_alloc, m_allocatedPeak);
        figures.cpu = read(m_kernel, m_kernelInclusive) + read(m_user, m_userInclusive);
        figures.cpuExclusive = read(m_kernel, m_kernelExclusive) + read(m_user, m_userExclusive);
        return figures;
    }

    void AddAttributes(const object& body, LoggedActivity& activity) const {
        for (const auto field : body) {
            simdjson::dom::array supplements;
            if (field.key == m_supplements && field.value.get(supplements) == simdjson::SUCCESS) {
                AddSupplements(supplements, activity);
            } else if (field.key != m_serviceDepth) {
                AppendPair(activity.attributes, field.key, field.value);
                activity.callsPeer = activity.callsPeer || field.key == attribute::peer;
            }
        }
    }

    void AddSupplements(const simdjson::dom::array& supplements, LoggedActivity& activity) const {
        for (const object supplement : supplements) {
            std::string& text = activity.supplements.emplace_back();
            for (const auto field : supplement) {
                if (field.key != m_beginPhase) {
                    AppendPair(text, field.key, field.value);
                }
            }
        }
    }

    const std::string m_phase = Utf8(ActivityTokens::phaseAttr);
    const std::string m_beginPhase = Utf8(ActivityTokens::beginPhase);
    const std::string m_endPhase = Utf8(ActivityTokens::endPhase);
    const std::string m_id = Utf8(ActivityTokens::idAttr);
    const std::string m_name = Utf8(ActivityTokens::nameAttr);
    const std::string m_sponsor = Utf8(ActivityTokens::sponsorAttr);
    const std::string m_description = Utf8(ActivityTokens::requestDescription);
    const std::string m_elapsed = Utf8(ActivityTokens::elapsedAttr);
    const std::string m_exclusive = Utf8(ActivityTokens::exclusiveTimeAttr);
    const std::string m_result = Utf8(ActivityTokens::resultKeyAttr);
    const std::string m_serviceDepth = Utf8(ActivityTokens::serviceDepthAttr);

    const std::string m_root = Utf8(ActivityTokens::rootAttr);
    const std::string m_depth = Utf8(ActivityTokens::depthAttr);
    const std::string m_resultValue = Utf8(ActivityTokens::resultValueAttr);
    const std::string m_supplements = Utf8(ActivityTokens::logSupplementsAttr);
    const std::string m_resources = Utf8(ActivityTokens::resourceSubGroupName);
    const std::string m_alloc = Utf8(ActivityTokens::allocSubGroupName);
    const std::string m_allocated = Utf8(ActivityTokens::allocatedInclusiveAttr);
    const std::string m_allocatedExclusive = Utf8(ActivityTokens::allocatedExclusiveAttr);
    const std::string m_allocatedPeak = Utf8(ActivityTokens::allocatedPeakAttr);
    const std::string m_kernel = Utf8(ActivityTokens::kernelCpuSubGroupName);
    const std::string m_kernelInclusive = Utf8(ActivityTokens::cpuTimeKernelInclusiveAttr);
    const std::string m_kernelExclusive = Utf8(ActivityTokens::cpuTimeKernelExclusiveAttr);
    const std::string m_user = Utf8(ActivityTokens::userCpuSubGroupName);
    const std::string m_userInclusive = Utf8(ActivityTokens::cpuTimeUserInclusiveAttr);
    const std::string m_userExclusive = Utf8(ActivityTokens::cpuTimeUserExclusiveAttr);

    std::optional<std::uint32_t> m_process;
    simdjson::dom::parser m_parser;
    std::unordered_map<std::string, std::size_t> m_indexById;
    LogReport m_report;
};

LogReader::LogReader(std::optional<std::uint32_t> process)
    : m_lines(std::make_unique<Lines>(process)) {}

LogReader::~LogReader() = default;

void LogReader::ReadLines(const simdjson::padded_string& text) {
    m_lines->ReadLines(text);
}

LogReport LogReader::Finish() {
    return m_lines->Finish();
}

}  // namespace packagesearch
