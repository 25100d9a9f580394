#include "span/LineParser.h"

#include <utility>

namespace tarn::otlp {

namespace {

using simdjson::ondemand::object;
using simdjson::ondemand::value;

// Calls `read` with the key and the value of each member; false as soon as that says so.
template <class Read>
bool ForEachMember(object& members, const Read& read) {
    for (auto result : members) {
        simdjson::ondemand::field field;
        std::string_view key;
        if (std::move(result).get(field) != simdjson::SUCCESS ||
            field.unescaped_key().get(key) != simdjson::SUCCESS || !read(key, field.value())) {
            return false;
        }
    }
    return true;
}

template <class T>
bool Read(value& from, T& to) {
    return from.get(to) == simdjson::SUCCESS;
}

bool ReadTime(value& from, Microseconds& to) {
    std::string_view text;
    if (!Read(from, text)) {
        return false;
    }
    const auto time = ParseTimestamp(text);
    to = time.value_or(0);
    return time.has_value();
}

bool ReadTable(value& from, std::string_view& to) {
    object members;
    return from.get_object().get(members) == simdjson::SUCCESS &&
           members.raw_json().get(to) == simdjson::SUCCESS;
}

// Adds the two figures of a group, as "ki" and "ke".
bool AddGroup(value& from,
              std::string_view inclusive,
              std::string_view exclusive,
              double& inclusiveSum,
              double& exclusiveSum) {
    object members;
    return from.get_object().get(members) == simdjson::SUCCESS &&
           ForEachMember(members, [&](std::string_view key, value figure) {
               double number = 0;
               if (key != inclusive && key != exclusive) {
                   return true;
               }
               if (figure.get(number) != simdjson::SUCCESS) {
                   return bool(figure.is_null());
               }
               (key == inclusive ? inclusiveSum : exclusiveSum) += number;
               return true;
           });
}

bool ReadResources(value& from, LineFacts& facts) {
    object groups;
    return from.get_object().get(groups) == simdjson::SUCCESS &&
           ForEachMember(groups, [&](std::string_view key, value group) {
               if (key == "alloc") {
                   facts.hasAllocated = true;
                   return AddGroup(
                       group, "ai", "ae", facts.allocatedInclusive, facts.allocatedExclusive);
               }
               if (key == "kcpu" || key == "ucpu") {
                   facts.hasCpu = true;
                   const bool isKernel = key == "kcpu";
                   return AddGroup(group,
                                   isKernel ? "ki" : "ui",
                                   isKernel ? "ke" : "ue",
                                   facts.cpuInclusive,
                                   facts.cpuExclusive);
               }
               return true;
           });
}

bool ReadActivity(value& from, LineFacts& facts) {
    object members;
    return from.get_object().get(members) == simdjson::SUCCESS &&
           ForEachMember(members, [&](std::string_view key, value member) {
               std::string_view type;
               if (key == "type") {
                   if (!Read(member, type)) {
                       return false;
                   }
                   facts.kind = type == "begin" ? LineFacts::Kind::Begin
                                : type == "end" ? LineFacts::Kind::End
                                                : LineFacts::Kind::Other;
                   return true;
               }
               return key == "id"         ? Read(member, facts.id)
                      : key == "name"     ? Read(member, facts.name)
                      : key == "sponsor"  ? Read(member, facts.sponsor)
                      : key == "caller"   ? Read(member, facts.caller)
                      : key == "root"     ? Read(member, facts.root)
                      : key == "req-desc" ? Read(member, facts.description)
                      : key == "elapsed"  ? Read(member, facts.elapsed)
                      : key == "rk"       ? Read(member, facts.result)
                      : key == "rv"       ? ReadTable(member, facts.resultDetails)
                      : key == "res"      ? ReadResources(member, facts)
                                          : true;
           });
}

bool ReadHost(value& from, LineFacts& facts) {
    object members;
    return from.get_object().get(members) == simdjson::SUCCESS &&
           ForEachMember(members, [&](std::string_view key, value member) {
               return key != "host" || Read(member, facts.host);
           });
}

}  // namespace

bool LineParser::Parse(std::string_view line, LineFacts& facts) {
    facts = LineFacts();
    simdjson::ondemand::document document;
    object members;
    const simdjson::padded_string_view padded(
        line.data(), line.size(), line.size() + simdjson::SIMDJSON_PADDING);
    if (m_parser.iterate(padded).get(document) != simdjson::SUCCESS ||
        document.get_object().get(members) != simdjson::SUCCESS) {
        return false;
    }
    const bool isRead = ForEachMember(members, [&](std::string_view key, value member) {
        return key == "time"          ? ReadTime(member, facts.time)
               : key == "pid"         ? Read(member, facts.process)
               : key == "tid"         ? Read(member, facts.thread)
               : key == "session"     ? Read(member, facts.session)
               : key == "request"     ? Read(member, facts.request)
               : key == "user"        ? Read(member, facts.user)
               : key == "site"        ? Read(member, facts.site)
               : key == "environment" ? ReadHost(member, facts)
               : key == "activity"    ? ReadActivity(member, facts)
               : key == "attributes"  ? ReadTable(member, facts.attributes)
               : key == "body"        ? ReadTable(member, facts.body)
                                      : true;
    });
    if (facts.root.empty()) {
        facts.root = facts.id;
    }
    return isRead && (facts.kind == LineFacts::Kind::Other ||
                      (!facts.id.empty() && facts.name.data() != nullptr && facts.time != 0));
}

bool LineParser::Parse(std::string& line, LineFacts& facts) {
    line.reserve(line.size() + simdjson::SIMDJSON_PADDING);
    return Parse(std::string_view(line), facts);
}

}  // namespace tarn::otlp
