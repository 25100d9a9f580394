#include "ProcessLog.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <tuple>

namespace ProcessTest {

namespace {

const std::string beginPrefix = "begin-";
const std::string endPrefix = "end-";

// From the oldest, which has the highest number. A process that ended while it renamed files leaves
// a gap among the numbers.
std::vector<std::string> FullFilesOf(const std::string& path) {
    const std::filesystem::path whole(path);
    const std::string start = whole.stem().string() + ".";
    std::map<long, std::string, std::greater<>> files;
    for (const auto& entry : std::filesystem::directory_iterator(whole.parent_path())) {
        const std::string stem = entry.path().stem().string();
        if (entry.path().extension() == whole.extension() && stem.rfind(start, 0) == 0) {
            files[std::stol(stem.substr(start.size()))] = entry.path().string();
        }
    }
    std::vector<std::string> paths;
    for (const auto& [number, file] : files) {
        paths.push_back(file);
    }
    return paths;
}

std::int64_t NumberAt(const nlohmann::json& body, const char* name) {
    const auto found = body.find(name);
    return found != body.end() && found->is_number() ? found->get<std::int64_t>() : -1;
}

}  // namespace

ProcessLog::ProcessLog(const std::string& path) {
    for (const std::string& full : FullFilesOf(path)) {
        ReadFile(full);
        ++m_fullFiles;
    }
    ReadFile(path);
}

void ProcessLog::ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find('\n', start)) != std::string::npos;) {
        ReadLine(path, text.substr(start, end - start));
        start = end + 1;
    }
    m_endsInsideLine = start != text.size();
    if (m_endsInsideLine) {
        m_broken.push_back(path + ": " + text.substr(start));
    }
}

void ProcessLog::ReadLine(const std::string& path, const std::string& line) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    if (json.is_object() && json.contains("message")) {
        m_messages.push_back(json["message"].get<std::string>());
        return;
    }
    if (!json.is_object() || !json.contains("event") || !json.contains("activity")) {
        m_broken.push_back(path + ": " + line);
        return;
    }
    const auto event = json["event"].get<std::string>();
    LogLine read;
    read.isBegin = event.rfind(beginPrefix, 0) == 0;
    read.name = event.substr((read.isBegin ? beginPrefix : endPrefix).size());
    read.id = json["activity"]["id"].get<std::string>();
    read.sponsor = json["activity"].value("sponsor", "");
    read.pid = json["pid"].get<std::int64_t>();
    read.tid = json["tid"].get<std::int64_t>();
    // The beginning alone has the numbers.
    if (read.isBegin) {
        read.thread = NumberAt(json["body"], "thread");
        read.number = NumberAt(json["body"], "n");
        m_numbers[read.id] = {read.thread, read.number};
    } else if (const auto found = m_numbers.find(read.id); found != m_numbers.end()) {
        std::tie(read.thread, read.number) = found->second;
    }
    m_lines.push_back(std::move(read));
}

std::set<std::int64_t> ProcessLog::ProcessIds() const {
    std::set<std::int64_t> ids;
    for (const LogLine& line : m_lines) {
        ids.insert(line.pid);
    }
    return ids;
}

std::vector<std::string> ProcessLog::Faults() const {
    std::vector<std::string> faults;
    std::map<std::string, bool> hasEnded;
    for (const LogLine& line : m_lines) {
        const auto found = hasEnded.find(line.id);
        const std::string scope = line.name + " " + line.id;
        if (line.isBegin) {
            if (found != hasEnded.end()) {
                faults.push_back(scope + " begins twice");
            }
            hasEnded[line.id] = false;
        } else if (found == hasEnded.end()) {
            faults.push_back(scope + " ends without a beginning");
        } else if (found->second) {
            faults.push_back(scope + " ends twice");
        } else {
            found->second = true;
        }
    }
    return faults;
}

std::vector<std::string> ProcessLog::Unended() const {
    std::map<std::string, std::string> open;
    for (const LogLine& line : m_lines) {
        if (line.isBegin) {
            open[line.id] = line.name;
        } else {
            open.erase(line.id);
        }
    }
    std::vector<std::string> names;
    for (const auto& [id, name] : open) {
        names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::size_t ProcessLog::CountBegun(const std::string& name) const {
    return static_cast<std::size_t>(
        std::count_if(m_lines.begin(), m_lines.end(), [&](const LogLine& line) {
            return line.isBegin && line.name == name;
        }));
}

std::vector<std::int64_t> ProcessLog::NumbersOf(std::int64_t pid, std::int64_t thread) const {
    std::vector<std::int64_t> numbers;
    for (const LogLine& line : m_lines) {
        if (!line.isBegin && line.name == "work" && line.pid == pid && line.thread == thread) {
            numbers.push_back(line.number);
        }
    }
    return numbers;
}

std::vector<std::int64_t> NumbersUpTo(std::uint64_t count) {
    std::vector<std::int64_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

}  // namespace ProcessTest
