#include "model/ProcessWatch.h"

#include "read/InputFiles.h"

#include <algorithm>
#include <map>

namespace tarnview {

void ProcessWatch::Take(const LogLine& line, const Place& place) {
    // The first thing that the library of a new process has to say.
    constexpr std::string_view startMessage = "Opening MetricsMonitor";
    ++m_lines;
    if (m_file != place.file) {
        m_file = place.file;
        m_log = LogOf(m_file);
        m_current = nullptr;
    }
    if (m_current == nullptr || m_currentId != line.process) {
        m_current = &m_processes[line.process];
        m_currentId = line.process;
        m_current->log = m_log;
    }
    m_current->lastTime = std::max(m_current->lastTime, line.time);
    m_current->lastLine = m_lines;
    TakeHost(line);
    TakeLastWords(line, place);
    if (line.kind == LineKind::Message &&
        line.message.substr(0, startMessage.size()) == startMessage) {
        m_starts[m_log] = {m_lines, line.process};
    }
}

void ProcessWatch::TakeHost(const LogLine& line) {
    std::string_view host;
    if (line.environment.size() > std::string_view("{}").size() && m_current->host.empty() &&
        m_parser.parse(line.environment.data(), line.environment.size())["host"].get(host) ==
            simdjson::SUCCESS) {
        m_current->host = host;
    }
}

// The host's last message is "Crashed by SIGSEGV on thread 7; open scopes: ..."; if it cannot say
// as much, "Crashed; ..." or "Crashed".
void ProcessWatch::TakeLastWords(const LogLine& line, const Place& place) {
    const std::string_view text = line.message;
    if (line.kind == LineKind::Message && (text == "Crashed" || text.rfind("Crashed by ", 0) == 0 ||
                                           text.rfind("Crashed; ", 0) == 0)) {
        m_current->lastWords = line.message;
        m_current->crashTime = line.time;
        m_current->crashFile = place.file;
        m_current->crashLine = place.line;
    }
}

// Other threads may still write while the log is saved. What goes on for longer has survived.
bool ProcessWatch::HasCrashed(const Process& process) {
    constexpr Microseconds timeToSave = 10'000'000;
    return !process.lastWords.empty() && process.lastTime <= process.crashTime + timeToSave;
}

std::string ProcessWatch::LastWordsOf(const ProcessId& process) const {
    const auto found = m_processes.find(process);
    return found == m_processes.end() || !HasCrashed(found->second) ? "" : found->second.lastWords;
}

std::vector<ProcessId> ProcessWatch::Crashed() const {
    std::vector<ProcessId> crashed;
    for (const auto& [id, process] : m_processes) {
        if (HasCrashed(process)) {
            crashed.push_back(id);
        }
    }
    std::sort(crashed.begin(), crashed.end());
    return crashed;
}

std::string ProcessWatch::HostOf(const ProcessId& process) const {
    const auto found = m_processes.find(process);
    return found == m_processes.end() ? "" : found->second.host;
}

Microseconds ProcessWatch::LastTimeOf(const ProcessId& process) const {
    const auto found = m_processes.find(process);
    return found == m_processes.end() ? 0 : found->second.lastTime;
}

bool ProcessWatch::IsReplaced(const ProcessId& process) const {
    const auto found = m_processes.find(process);
    if (found == m_processes.end()) {
        return false;
    }
    const auto start = m_starts.find(found->second.log);
    return start != m_starts.end() && start->second.process != process &&
           start->second.line > found->second.lastLine;
}

void ProcessWatch::ReportDead(const std::vector<const Activity*>& open, Problems& problems) const {
    std::map<ProcessId, std::vector<const Activity*>> dead;
    for (const Activity* const activity : open) {
        if (IsReplaced(activity->process)) {
            dead[activity->process].push_back(activity);
        }
    }
    for (const auto& [process, activities] : dead) {
        problems.Report(ProblemKind::DeadProcess,
                        activities.front()->beginPlace,
                        "process " + ProcessName(process) + ", open: " +
                            std::to_string(activities.size()) + ", as " + activities.front()->name);
    }
    for (const ProcessId& id : Crashed()) {
        const Process& process = m_processes.at(id);
        problems.Report(ProblemKind::Crash,
                        {process.crashFile, process.crashLine},
                        "process " + ProcessName(id) + ": " + process.lastWords);
    }
}

}  // namespace tarnview
