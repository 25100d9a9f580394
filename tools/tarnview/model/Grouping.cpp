#include "model/Grouping.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tarnview {

namespace {

constexpr std::string_view attributesPrefix = "attributes.";
constexpr std::string_view bodyPrefix = "body.";

// In the key, each value follows its length.
using Length = std::uint64_t;

struct TextField {
    std::string_view name;
    std::string Activity::*text;
};

struct NumberField {
    std::string_view name;
    std::int64_t Activity::*number;
};

constexpr TextField textFields[] = {{"name", &Activity::name},
                                    {"user", &Activity::user},
                                    {"site", &Activity::site},
                                    {"req-desc", &Activity::description},
                                    {"session", &Activity::session},
                                    {"request", &Activity::request},
                                    {"result", &Activity::result},
                                    {"root", &Activity::root}};
constexpr NumberField numberFields[] = {
    {"pid", &Activity::process}, {"tid", &Activity::endThread}, {"depth", &Activity::depth}};

bool BeginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning && text.size() > beginning.size();
}

bool IsOfTable(std::string_view name) {
    return BeginsWith(name, attributesPrefix) || BeginsWith(name, bodyPrefix);
}

bool IsKnown(std::string_view name) {
    const auto isIt = [&](const auto& field) { return field.name == name; };
    return IsOfTable(name) || std::any_of(std::begin(textFields), std::end(textFields), isIt) ||
           std::any_of(std::begin(numberFields), std::end(numberFields), isIt);
}

}  // namespace

std::optional<Grouping> Grouping::FromNames(const std::vector<std::string>& names) {
    Grouping grouping;
    for (const std::string& name : names) {
        if (!IsKnown(name)) {
            return std::nullopt;
        }
        grouping.m_needsTables = grouping.m_needsTables || IsOfTable(name);
    }
    grouping.m_names = names;
    return grouping;
}

std::string Grouping::KnownNames() {
    std::string names;
    for (const TextField& field : textFields) {
        names.append(field.name).append(", ");
    }
    for (const NumberField& field : numberFields) {
        names.append(field.name).append(", ");
    }
    return names + "attributes.NAME, body.NAME";
}

std::string_view Grouping::KeyOf(const Activity& activity) {
    m_key.clear();
    for (const std::string& name : m_names) {
        const std::size_t begin = m_key.size();
        m_key.resize(begin + sizeof(Length));
        AppendValue(name, activity);
        const Length length = m_key.size() - begin - sizeof(Length);
        memcpy(&m_key[begin], &length, sizeof(length));
    }
    return m_key;
}

void Grouping::AppendValue(const std::string& name, const Activity& activity) {
    for (const TextField& field : textFields) {
        if (field.name == name) {
            const std::string& text = activity.*field.text;
            m_key.append(text.empty() ? "-" : text);
            return;
        }
    }
    for (const NumberField& field : numberFields) {
        if (field.name == name) {
            m_key.append(std::to_string(activity.*field.number));
            return;
        }
    }
    const std::string_view text(name);
    const bool isFound =
        BeginsWith(text, bodyPrefix)
            ? AppendMember(activity.endBody, text.substr(bodyPrefix.size())) ||
                  AppendMember(activity.beginBody, text.substr(bodyPrefix.size()))
            : AppendMember(activity.attributes, text.substr(attributesPrefix.size()));
    if (!isFound) {
        m_key.append("-");
    }
}

bool Grouping::AppendMember(const std::string& table, std::string_view member) {
    simdjson::dom::element value;
    if (table.empty() || m_parser.parse(table)[member].get(value) != simdjson::SUCCESS) {
        return false;
    }
    m_key.append(value.is_string() ? std::string(std::string_view(value))
                                   : simdjson::minify(value));
    return true;
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
