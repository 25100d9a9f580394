#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// A log, and the host that somebody says it is of.
struct HostedLog {
    std::string host;
    std::string path;
};

/// Which host each log is of: the one that somebody names, else the one that its lines name first.
/// Logs that name none belong to the only host that the others name; if there are several, or
/// somebody named one, they are of a host of their own without a name. A value.
class Hosts {
public:
    /// All of one host.
    Hosts() = default;

    /// Reads the beginnings of the logs, if there are several. What can be read only once, as a
    /// pipe, is not looked at. Files that cannot be read are passed over.
    Hosts(const std::vector<std::string>& files, const std::vector<HostedLog>& named);

    /// What tells the processes in a file from those of other hosts; empty if there is one host
    /// only, or for the one without a name. Kept until the program ends.
    std::string_view Of(const std::string& file) const;

    /// Whether somebody, or the log, names the host of a file. A single log is not asked.
    bool IsKnown(const std::string& file) const;

    bool AreSeveral() const { return m_areSeveral; }

    /// Logs whose host nobody names, if there are several hosts.
    const std::vector<std::string>& Nameless() const { return m_nameless; }

    /// A text that is kept until the program ends.
    static std::string_view Keep(std::string_view name);

private:
    std::map<std::string, std::string_view> m_byLog;
    std::vector<std::string> m_nameless;
    bool m_areSeveral = false;
};

}  // namespace tarnview
