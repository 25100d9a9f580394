#pragma once

#include "activity/Activity.h"
#include "expression/ActivityField.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// By what activities are grouped: one or several of their fields. Used by one thread.
class Grouping {
public:
    /// Names of fields that are texts, numbers or attributes. `nullopt` if any name is unknown.
    static std::optional<Grouping> FromNames(const std::vector<std::string>& names);

    /// The names that FromNames() takes, for people.
    static std::string KnownNames();

    const std::vector<std::string>& Names() const { return m_names; }

    /// Whether lines must be parsed with their tables.
    bool NeedsTables() const { return m_needsTables; }

    /// The values of the fields in one text, whatever characters they hold. "-" stands for what the
    /// activity does not have. Of a body attribute that both lines have, the end line's value
    /// counts. Valid until the next call.
    std::string_view KeyOf(const Activity& activity);

    /// The values that KeyOf() has put into the text.
    std::vector<std::string> ValuesOf(std::string_view key) const;

private:
    std::vector<std::string> m_names;
    std::vector<ActivityField> m_fields;
    bool m_needsTables = false;
    std::string m_key;
};

}  // namespace tarnview
