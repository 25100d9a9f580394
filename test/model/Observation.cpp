#include "Observation.h"

#include <algorithm>
#include <cstdio>

namespace model {
namespace {

template <class Fields>
auto LowerBound(Fields& fields, std::u16string_view name) {
    return std::lower_bound(
        fields.begin(), fields.end(), name, [](const Field& field, std::u16string_view wanted) {
            return field.name.compare(wanted) < 0;
        });
}

std::string PrintReal(double value) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return buffer;
}

std::string PrintCounters(const Counters& counters) {
    std::string text = "[";
    for (const int64 counter : counters) {
        text += (text.size() > 1 ? " " : "") + std::to_string(counter);
    }
    return text + "]";
}

std::string PrintEvent(const LogEvent& event) {
    return "event " + Print(event.name) + " time=" + std::to_string(event.time) +
           " pid=" + std::to_string(event.processId) + " tid=" + std::to_string(event.threadId) +
           " session=" + Print(event.session) +
           " request=" + (event.requestIsGenerated ? "<generated>" : Print(event.request)) +
           " user=" + Print(event.user) + " site=" + Print(event.site) +
           " environment=" + Print(event.environment) + " activity=" + Print(event.activity) +
           " attributes=" + Print(event.attributes) + " body=" + Print(event.body);
}

}  // namespace

Node Node::Text(std::u16string_view text) {
    Node node;
    node.kind = Kind::Text;
    node.text = text;
    return node;
}

Node Node::Integer(int64 value) {
    Node node;
    node.kind = Kind::Integer;
    node.integer = value;
    return node;
}

Node Node::Real(double value) {
    Node node;
    node.kind = Kind::Real;
    node.real = value;
    return node;
}

Node Node::Boolean(bool value) {
    Node node;
    node.kind = Kind::Boolean;
    node.integer = value ? 1 : 0;
    return node;
}

Node Node::Object() {
    Node node;
    node.kind = Kind::Object;
    return node;
}

Node Node::Array() {
    Node node;
    node.kind = Kind::Array;
    return node;
}

void Node::Set(std::u16string_view name, Node value) {
    const auto position = LowerBound(fields, name);
    if (position != fields.end() && position->name == name) {
        position->value = std::move(value);
    } else {
        fields.insert(position, Field{std::u16string(name), std::move(value)});
    }
}

Node* Node::Find(std::u16string_view name) {
    const auto position = LowerBound(fields, name);
    return position != fields.end() && position->name == name ? &position->value : nullptr;
}

std::string Print(std::u16string_view text) {
    std::string printed = "\"";
    for (const char16_t unit : text) {
        if (unit == u'"' || unit == u'\\') {
            printed += '\\';
            printed += static_cast<char>(unit);
        } else if (unit >= u' ' && unit <= u'~') {
            printed += static_cast<char>(unit);
        } else {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04X", static_cast<unsigned>(unit));
            printed += buffer;
        }
    }
    return printed + "\"";
}

std::string Print(const Node& node) {
    std::string printed;
    switch (node.kind) {
        case Node::Kind::Nothing:
            return "nothing";
        case Node::Kind::Text:
            return Print(node.text);
        case Node::Kind::Integer:
            return std::to_string(node.integer);
        case Node::Kind::Real:
            return "real " + PrintReal(node.real);
        case Node::Kind::FixedReal:
            return "fixed real " + PrintReal(node.real);
        case Node::Kind::Boolean:
            return node.integer != 0 ? "true" : "false";
        case Node::Kind::Null:
            return "null";
        case Node::Kind::Object:
            for (const Field& field : node.fields) {
                printed +=
                    (printed.empty() ? "" : ", ") + Print(field.name) + ": " + Print(field.value);
            }
            return "{" + printed + "}";
        case Node::Kind::Array:
            for (const Node& item : node.items) {
                printed += (printed.empty() ? "" : ", ") + Print(item);
            }
            return "[" + printed + "]";
    }
    return "?";
}

std::string Print(const Entry& entry) {
    const std::string severity = "severity " + std::to_string(entry.severity) + " ";
    switch (entry.kind) {
        case Entry::Kind::CounterCall:
            return "counter call \"" + entry.counterName + "\" by " + std::to_string(entry.amount) +
                   " at " + PrintCounters(entry.counters);
        case Entry::Kind::Message:
            return severity + "message " + Print(entry.text);
        case Entry::Kind::DiagnosticEvent:
            return severity + "diagnostic event " + Print(entry.text) + " " + Print(entry.body);
        case Entry::Kind::ActivityEvent:
            return severity + PrintEvent(entry.event);
        case Entry::Kind::IdTaken:
            return "id taken";
    }
    return "?";
}

std::string Print(const std::optional<Raised>& raised) {
    if (!raised) {
        return "nothing raised";
    }
    char code[16] = "any";
    if (raised->code) {
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(*raised->code));
    }
    const char* const kinds[] = {"logic exception", "the sink's exception", "another exception"};
    return std::string(kinds[static_cast<std::size_t>(raised->kind)]) + " file=" + raised->file +
           " line=" + (raised->line ? std::to_string(*raised->line) : "any") +
           " text=" + raised->text + " code=" + code + " error=" + raised->errorText;
}

}  // namespace model
