#include "model/Grouping.h"

#include <algorithm>

namespace tarnview {

namespace {

constexpr std::string_view attributesPrefix = "attributes.";
constexpr std::string_view bodyPrefix = "body.";

struct TextField {
    std::string_view name;
    std::string_view LogLine::*text;
};

struct NumberField {
    std::string_view name;
    std::int64_t LogLine::*number;
};

constexpr TextField textFields[] = {{"name", &LogLine::name},
                                    {"user", &LogLine::user},
                                    {"site", &LogLine::site},
                                    {"req-desc", &LogLine::description},
                                    {"session", &LogLine::session},
                                    {"request", &LogLine::request},
                                    {"result", &LogLine::result},
                                    {"root", &LogLine::root}};
constexpr NumberField numberFields[] = {
    {"pid", &LogLine::process}, {"tid", &LogLine::thread}, {"depth", &LogLine::depth}};

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

std::string_view Grouping::KeyOf(const LogLine& line) {
    if (IsByNameOnly()) {
        return line.name;
    }
    m_key.clear();
    for (std::size_t index = 0; index < m_names.size(); ++index) {
        if (index != 0) {
            m_key.push_back('\0');
        }
        Append(m_names[index], line);
    }
    return m_key;
}

void Grouping::Append(const std::string& name, const LogLine& line) {
    for (const TextField& field : textFields) {
        if (field.name == name) {
            const std::string_view text = line.*field.text;
            m_key.append(text.empty() ? "-" : text);
            return;
        }
    }
    for (const NumberField& field : numberFields) {
        if (field.name == name) {
            m_key.append(std::to_string(line.*field.number));
            return;
        }
    }
    const bool isBody = BeginsWith(name, bodyPrefix);
    AppendMember(isBody ? line.body : line.attributes,
                 name.substr(isBody ? bodyPrefix.size() : attributesPrefix.size()));
}

void Grouping::AppendMember(std::string_view table, const std::string& member) {
    simdjson::dom::element value;
    const auto error = m_parser.parse(table.data(), table.size())[member].get(value);
    if (error != simdjson::SUCCESS) {
        m_key.append("-");
    } else if (value.is_string()) {
        m_key.append(std::string_view(value));
    } else {
        m_key.append(simdjson::minify(value));
    }
}

std::vector<std::string> Grouping::ValuesOf(std::string_view key) {
    std::vector<std::string> values;
    std::size_t begin = 0;
    for (std::size_t end = key.find('\0'); end != std::string_view::npos;
         end = key.find('\0', begin)) {
        values.emplace_back(key.substr(begin, end - begin));
        begin = end + 1;
    }
    values.emplace_back(key.substr(begin));
    return values;
}

}  // namespace tarnview
