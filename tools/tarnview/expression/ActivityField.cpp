#include "expression/ActivityField.h"

#include <simdjson.h>

namespace tarnview {

namespace {

Value TextOf(const std::string& text) {
    return text.empty() ? Value() : Value::Of(std::string_view(text));
}

template <std::string Activity::*member>
Value ReadText(const Activity& activity) {
    return TextOf(activity.*member);
}

Value Figure(bool isMeasured, double figure) {
    return isMeasured ? Value::Of(static_cast<long double>(figure)) : Value();
}

Value AfterEnd(const Activity& activity, long double number) {
    return activity.hasEnd ? Value::Of(number) : Value();
}

Value ValueOf(const simdjson::dom::element& element) {
    switch (element.type()) {
        case simdjson::dom::element_type::STRING:
            return Value::Of(std::string_view(element));
        case simdjson::dom::element_type::BOOL:
            return Value::Of(bool(element));
        case simdjson::dom::element_type::INT64:
            return Value::Of(std::int64_t(element));
        case simdjson::dom::element_type::UINT64:
            return Value::Of(static_cast<long double>(std::uint64_t(element)));
        case simdjson::dom::element_type::DOUBLE:
            return Value::Of(static_cast<long double>(double(element)));
        case simdjson::dom::element_type::NULL_VALUE:
            return {};
        default:
            return Value::Of(std::string_view(simdjson::minify(element)));
    }
}

Value MemberOf(const std::string& table, const std::string& member) {
    // One for each thread: it keeps its memory from line to line.
    thread_local simdjson::dom::parser parser;
    simdjson::dom::element element;
    // Most tables do not have the member; those that escape a letter of its name are rare.
    if (table.find(member) == std::string::npos && table.find('\\') == std::string::npos) {
        return {};
    }
    const bool isThere = parser.parse(table).at_key(member).get(element) == simdjson::SUCCESS;
    return isThere ? ValueOf(element) : Value();
}

}  // namespace

struct ActivityField::Common {
    std::string_view name;
    ValueType type;
    Value (*read)(const Activity& activity);
    std::string Activity::*text = nullptr;  ///< where a text is, so that it need not be copied
};

struct ActivityField::Table {
    std::string_view name;
    std::string Activity::*first;
    std::string Activity::*otherwise;
};

const ActivityField::Common ActivityField::s_common[] = {
    {"name", ValueType::Text, ReadText<&Activity::name>, &Activity::name},
    {"id", ValueType::Text, ReadText<&Activity::id>, &Activity::id},
    {"root", ValueType::Text, ReadText<&Activity::root>, &Activity::root},
    {"sponsor", ValueType::Text, ReadText<&Activity::sponsor>, &Activity::sponsor},
    {"user", ValueType::Text, ReadText<&Activity::user>, &Activity::user},
    {"site", ValueType::Text, ReadText<&Activity::site>, &Activity::site},
    {"session", ValueType::Text, ReadText<&Activity::session>, &Activity::session},
    {"request", ValueType::Text, ReadText<&Activity::request>, &Activity::request},
    {"req-desc", ValueType::Text, ReadText<&Activity::description>, &Activity::description},
    {"result", ValueType::Text, ReadText<&Activity::result>, &Activity::result},
    {"host",
     ValueType::Text,
     [](const Activity& it) {
         return it.process.host.empty() ? Value() : Value::Of(it.process.host);
     }},
    {"pid", ValueType::Number, [](const Activity& it) { return Value::Of(it.process.number); }},
    {"tid", ValueType::Number, [](const Activity& it) { return Value::Of(it.endThread); }},
    {"depth", ValueType::Number, [](const Activity& it) { return Value::Of(it.depth); }},
    {"begin", ValueType::Time, [](const Activity& it) { return Value::Of(it.begin); }},
    {"end",
     ValueType::Time,
     [](const Activity& it) { return AfterEnd(it, static_cast<long double>(it.end)); }},
    {"elapsed",
     ValueType::Duration,
     [](const Activity& it) { return AfterEnd(it, static_cast<long double>(it.Duration())); }},
    {"exclusive",
     ValueType::Duration,
     [](const Activity& it) { return AfterEnd(it, static_cast<long double>(it.ExclusiveTime())); }},
    {"cpu",
     ValueType::Duration,
     [](const Activity& it) { return Figure(it.figures.hasCpu, it.figures.CpuInclusive()); }},
    {"memory",
     ValueType::Size,
     [](const Activity& it) { return Figure(it.figures.hasAllocated, it.figures.ai); }},
    {"ended", ValueType::Boolean, [](const Activity& it) { return Value::Of(it.hasEnd); }},
    {"failed", ValueType::Boolean, [](const Activity& it) { return Value::Of(it.IsFailure()); }},
    {"early",
     ValueType::Boolean,
     [](const Activity& it) { return Value::Of(it.IsEarlyTermination()); }},
};

const ActivityField::Table ActivityField::s_tables[] = {
    {"body", &Activity::endBody, &Activity::beginBody},
    {"attributes", &Activity::attributes, nullptr},
    {"rv", &Activity::resultDetails, nullptr},
    {"environment", &Activity::environment, nullptr},
};

std::optional<ActivityField> ActivityField::Find(std::string_view name) {
    ActivityField field;
    field.m_name = name;
    for (const Common& common : s_common) {
        if (common.name == name) {
            field.m_common = &common;
            return field;
        }
    }
    const std::size_t dot = name.find('.');
    if (dot == std::string_view::npos || dot + 1 == name.size()) {
        return std::nullopt;
    }
    for (const Table& table : s_tables) {
        if (table.name == name.substr(0, dot)) {
            field.m_table = &table;
            field.m_member = name.substr(dot + 1);
            return field;
        }
    }
    return std::nullopt;
}

std::string ActivityField::KnownNames(bool (*isWanted)(ValueType type)) {
    std::string names;
    for (const Common& common : s_common) {
        if (isWanted == nullptr || isWanted(common.type)) {
            names.append(common.name).append(", ");
        }
    }
    const char* separator = "";
    for (const Table& table : s_tables) {
        names.append(separator).append(table.name).append(".NAME");
        separator = ", ";
    }
    return names;
}

ValueType ActivityField::Type() const {
    return m_common == nullptr ? ValueType::Any : m_common->type;
}

void ActivityField::AppendTo(std::string& text, const Activity& activity) const {
    if (m_common != nullptr && m_common->text != nullptr) {
        const std::string& member = activity.*(m_common->text);
        text.append(member.empty() ? "-" : member);
    } else {
        const Value value = Of(activity);
        text.append(value.IsMissing() ? "-" : PlainText(value));
    }
}

Value ActivityField::Of(const Activity& activity) const {
    if (m_common != nullptr) {
        return m_common->read(activity);
    }
    Value value = MemberOf(activity.*(m_table->first), m_member);
    if (value.IsMissing() && m_table->otherwise != nullptr) {
        value = MemberOf(activity.*(m_table->otherwise), m_member);
    }
    return value;
}

}  // namespace tarnview
