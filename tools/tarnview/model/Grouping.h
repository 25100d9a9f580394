#pragma once

#include "model/Activity.h"
#include "read/LogLine.h"

#include <optional>
#include <simdjson.h>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// By what activities are grouped: one or several fields of their end lines. Used by one thread.
class Grouping {
public:
    /// Names of fields ("name", "user", "site", "req-desc", "session", "request", "result", "pid",
    /// "tid", "depth", "root"), or "attributes.NAME" and "body.NAME". Nothing if one is none.
    static std::optional<Grouping> FromNames(const std::vector<std::string>& names);

    /// The names that FromNames() takes, for people.
    static std::string KnownNames();

    const std::vector<std::string>& Names() const { return m_names; }

    bool IsByNameOnly() const { return m_names.size() == 1 && m_names.front() == "name"; }

    /// Whether lines must be parsed with their tables.
    bool NeedsTables() const { return m_needsTables; }

    /// The group of a line: the values of the fields, with a '\0' between them. "-" stands for what
    /// the line does not have. Valid until the next call.
    std::string_view KeyOf(const LogLine& line);

    static std::vector<std::string> ValuesOf(std::string_view key);

private:
    void Append(const std::string& name, const LogLine& line);
    void AppendMember(std::string_view table, const std::string& member);

    std::vector<std::string> m_names;
    bool m_needsTables = false;
    std::string m_key;
    simdjson::dom::parser m_parser;
};

}  // namespace tarnview
