#include "model/Grouping.h"

#include <cstdint>
#include <cstring>

namespace tarnview {

namespace {

// In the key, each value follows its length.
using Length = std::uint64_t;

// Groups by what is measured would have one activity each.
bool IsGroup(ValueType type) {
    return type == ValueType::Text || type == ValueType::Number || type == ValueType::Boolean ||
           type == ValueType::Any;
}

}  // namespace

std::optional<Grouping> Grouping::FromNames(const std::vector<std::string>& names) {
    Grouping grouping;
    for (const std::string& name : names) {
        const auto field = ActivityField::Find(name);
        if (!field || !IsGroup(field->Type())) {
            return std::nullopt;
        }
        grouping.m_fields.push_back(*field);
        grouping.m_needsTables = grouping.m_needsTables || field->NeedsTables();
    }
    grouping.m_names = names;
    return grouping;
}

std::string Grouping::KnownNames() {
    return ActivityField::KnownNames(IsGroup);
}

std::string_view Grouping::KeyOf(const Activity& activity) {
    m_key.clear();
    for (const ActivityField& field : m_fields) {
        const std::size_t begin = m_key.size();
        m_key.resize(begin + sizeof(Length));
        field.AppendTo(m_key, activity);
        const Length length = m_key.size() - begin - sizeof(Length);
        memcpy(&m_key[begin], &length, sizeof(length));
    }
    return m_key;
}

std::vector<std::string> Grouping::ValuesOf(std::string_view key) const {
    std::vector<std::string> values;
    while (values.size() < m_names.size()) {
        Length length = 0;
        memcpy(&length, key.data(), sizeof(length));
        values.emplace_back(key.substr(sizeof(length), length));
        key.remove_prefix(sizeof(length) + length);
    }
    return values;
}

}  // namespace tarnview
