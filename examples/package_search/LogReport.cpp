#include "LogReport.h"

#include "tarn/ActivityTokens.h"

#include "cvlcoreplatform/TString.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <simdjson.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
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

class Reader {
public:
    explicit Reader(std::uint32_t process) : m_process(process) {}

    // The text must be followed by as many bytes as the parser may read ahead.
    void ReadLines(std::string_view text) {
        while (!text.empty()) {
            const std::size_t end = text.find('\n');
            ReadLine(text.substr(0, end));
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        }
    }

    LogReport Finish() {
        LogReport report = std::move(m_report);
        for (std::size_t index = 0; index < report.activities.size(); ++index) {
            const LoggedActivity& activity = report.activities[index];
            const auto sponsor = m_indexById.find(activity.sponsor);
            if (sponsor != m_indexById.end() && sponsor->second != index) {
                report.activities[sponsor->second].children.push_back(index);
            }
        }
        for (LoggedActivity& activity : report.activities) {
            std::stable_sort(activity.children.begin(),
                             activity.children.end(),
                             [&](std::size_t a, std::size_t b) {
                                 return report.activities[a].begin < report.activities[b].begin;
                             });
        }
        return report;
    }

private:
    void ReadLine(std::string_view text) {
        try {
            object line;
            if (const auto error = m_parser.parse(text.data(), text.size(), false).get(line)) {
                throw simdjson::simdjson_error(error);
            }
            if (Integer(line, processField) == m_process) {
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
        activity.description = Text(fields, m_description);
        activity.begin = Text(line, timeField);
        activity.threadId = Integer(line, threadField);
        activity.request = Text(line, requestField);
        activity.user = Text(line, userField);
        activity.site = Text(line, siteField);
        activity.session = Text(line, sessionField);
    }

    void ReadEnd(const object& line, const object& fields, LoggedActivity& activity) const {
        activity.threadId = Integer(line, threadField);
        activity.elapsed = Number(fields, m_elapsed);
        activity.exclusive = Number(fields, m_exclusive);
        activity.result = Text(fields, m_result);
    }

    void AddAttributes(const object& body, LoggedActivity& activity) const {
        for (const auto field : body) {
            if (field.key != m_serviceDepth) {
                activity.attributes.append(activity.attributes.empty() ? "" : " ")
                    .append(field.key)
                    .append("=")
                    .append(ToText(field.value));
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

    std::uint32_t m_process;
    simdjson::dom::parser m_parser;
    std::unordered_map<std::string, std::size_t> m_indexById;
    LogReport m_report;
};

// "a.log", then "a.1.log", "a.2.log" and so on, the younger ones first.
std::filesystem::path FileOfLog(const std::filesystem::path& path, std::size_t age) {
    if (age == 0) {
        return path;
    }
    std::filesystem::path file = path;
    file.replace_filename(path.stem().string() + "." + std::to_string(age) +
                          path.extension().string());
    return file;
}

// The files from `start` on, the oldest first.
std::vector<std::filesystem::path> FilesSince(const LogPosition& start) {
    std::vector<std::filesystem::path> files;
    for (std::size_t age = 0;; ++age) {
        const std::filesystem::path file = FileOfLog(start.path, age);
        if (!std::filesystem::exists(file)) {
            throw std::runtime_error(start.path.string() +
                                     ": the file that this run's log began in is gone");
        }
        const LogPosition end = LogPosition::EndOf(file);
        files.insert(files.begin(), file);
        if (end.device == start.device && end.inode == start.inode) {
            return files;
        }
    }
}

simdjson::padded_string ReadFile(const std::filesystem::path& path, std::uintmax_t offset) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : 0;
    const auto from = static_cast<std::streamoff>(offset);
    if (!file || size < from) {
        throw std::system_error(file ? EIO : errno, std::generic_category(), path.string());
    }
    simdjson::padded_string text(static_cast<std::size_t>(size - from));
    file.seekg(from);
    if (!file.read(text.data(), size - from)) {
        throw std::system_error(EIO, std::generic_category(), path.string());
    }
    return text;
}

std::size_t NameWidth(const LogReport& report, const LoggedActivity& activity) {
    std::size_t width = activity.name.size();
    for (const std::size_t child : activity.children) {
        width = std::max(width, 2 + NameWidth(report, report.activities[child]));
    }
    return width;
}

void PrintRow(std::ostream& out,
              std::size_t indent,
              std::size_t width,
              const LoggedActivity& activity) {
    out << std::string(indent, ' ') << std::left << std::setw(static_cast<int>(width - indent))
        << activity.name << std::right << std::fixed << std::setprecision(3) << std::setw(10)
        << activity.elapsed << " s" << std::setw(10) << activity.exclusive << " s" << std::setw(9)
        << activity.threadId;
    if (!activity.attributes.empty()) {
        out << "  " << activity.attributes;
    }
    if (activity.result.empty()) {
        out << "  (never ended)";
    } else if (activity.result != Utf8(ActivityTokens::resultOk)) {
        out << "  (" << activity.result << ")";
    }
    out << '\n';
}

void PrintRows(std::ostream& out,
               const LogReport& report,
               const LoggedActivity& activity,
               std::size_t indent,
               std::size_t width) {
    PrintRow(out, indent, width, activity);
    for (const std::size_t child : activity.children) {
        PrintRows(out, report, report.activities[child], indent + 2, width);
    }
}

}  // namespace

LogPosition LogPosition::EndOf(const std::filesystem::path& path) {
    struct stat status {};

    if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path.string() +
                                 ": is no regular file, a log could not be read back");
    }
    return {path, status.st_dev, status.st_ino, static_cast<std::uintmax_t>(status.st_size)};
}

std::map<std::string, std::size_t> LogReport::CountByName() const {
    std::map<std::string, std::size_t> counts;
    for (const LoggedActivity& activity : activities) {
        ++counts[activity.name];
    }
    return counts;
}

const LoggedActivity* LogReport::Slowest(std::string_view name) const {
    const LoggedActivity* slowest = nullptr;
    for (const LoggedActivity& activity : activities) {
        const bool isCandidate = activity.name == name && !activity.result.empty();
        if (isCandidate && (slowest == nullptr || activity.elapsed > slowest->elapsed)) {
            slowest = &activity;
        }
    }
    return slowest;
}

LogReport ReadLog(const LogPosition& start, std::uint32_t process) {
    Reader reader(process);
    std::uintmax_t offset = start.offset;
    for (const std::filesystem::path& file : FilesSince(start)) {
        const simdjson::padded_string text = ReadFile(file, offset);
        reader.ReadLines(text);
        offset = 0;
    }
    return reader.Finish();
}

void PrintTree(std::ostream& out, const LogReport& report, const LoggedActivity& root) {
    const std::size_t width = std::max<std::size_t>(NameWidth(report, root), 8);
    out << std::left << std::setw(static_cast<int>(width)) << "activity" << std::right
        << std::setw(12) << "elapsed" << std::setw(12) << "exclusive" << std::setw(9) << "thread"
        << "  attributes\n";
    PrintRows(out, report, root, 0, width);
}

}  // namespace packagesearch
