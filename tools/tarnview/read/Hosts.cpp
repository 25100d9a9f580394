#include "read/Hosts.h"

#include "read/InputFiles.h"
#include "read/LineParser.h"
#include "read/LineReader.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <simdjson.h>
#include <system_error>

namespace tarnview {

namespace {

// Far enough for the end of some root in most logs, and read in a few milliseconds.
constexpr std::uint64_t bytesToLookAt = std::uint64_t{1} << 20;

bool IsSameLog(const std::string& log, const std::string& other) {
    std::error_code error;
    return log == other || std::filesystem::equivalent(log, other, error);
}

// "host" of the environment, which end lines of roots have.
std::string HostIn(std::string_view line, LineParser& parser, simdjson::dom::parser& tables) {
    LogLine parsed;
    std::string_view host;
    const bool isRead = line.find(R"("host":)") != std::string_view::npos &&
                        parser.Parse(line, parsed) != LineParser::Result::Unreadable &&
                        tables.parse(parsed.environment)["host"].get(host) == simdjson::SUCCESS;
    return isRead ? std::string(host) : std::string();
}

std::string HostNamedIn(const std::string& file) {
    std::error_code error;
    if (file == standardInput || !std::filesystem::is_regular_file(file, error)) {
        return "";
    }
    try {
        const InputFile input(file);
        LineReader reader(input.Descriptor());
        LineParser parser({.wantsTables = true});
        simdjson::dom::parser tables;
        for (auto it = reader.Next();
             it != LineReader::Result::End && reader.BytesRead() <= bytesToLookAt;
             it = reader.Next()) {
            if (it != LineReader::Result::Line) {
                continue;
            }
            if (std::string host = HostIn(reader.Text(), parser, tables); !host.empty()) {
                return host;
            }
        }
    } catch (const std::system_error&) {
        return "";  // who reads it says why
    }
    return "";
}

}  // namespace

Hosts::Hosts(const std::vector<std::string>& files, const std::vector<HostedLog>& named) {
    std::vector<std::string> logs;
    for (const std::string& file : files) {
        const std::string log = LogOf(file);
        if (std::find(logs.begin(), logs.end(), log) == logs.end()) {
            logs.push_back(log);
        }
    }
    for (const std::string& log : logs) {
        const auto said = std::find_if(named.begin(), named.end(), [&](const HostedLog& it) {
            return IsSameLog(LogOf(it.path), log);
        });
        if (said != named.end()) {
            m_byLog[log] = Keep(said->host);
        }
    }
    for (const std::string& file : files) {
        std::string_view& host = m_byLog[LogOf(file)];
        if (host.empty() && logs.size() > 1) {
            host = Keep(HostNamedIn(file));
        }
    }
    std::set<std::string_view> names;
    for (const std::string& log : logs) {
        if (m_byLog[log].empty()) {
            m_nameless.push_back(log);
        } else {
            names.insert(m_byLog[log]);
        }
    }
    m_areSeveral = names.size() > 1 || (!named.empty() && !names.empty() && !m_nameless.empty());
    if (!m_areSeveral) {
        m_nameless.clear();
    }
}

std::string_view Hosts::Of(const std::string& file) const {
    const auto found = m_areSeveral ? m_byLog.find(LogOf(file)) : m_byLog.end();
    return found == m_byLog.end() ? std::string_view() : found->second;
}

bool Hosts::IsKnown(const std::string& file) const {
    const auto found = m_byLog.find(LogOf(file));
    return found != m_byLog.end() && !found->second.empty();
}

std::string_view Hosts::Keep(std::string_view name) {
    // Never destroyed: texts of it are in values that may outlive everything.
    static auto* const names = new std::set<std::string, std::less<>>;
    const auto known = names->find(name);
    return known != names->end() ? *known : *names->emplace(name).first;
}

}  // namespace tarnview
