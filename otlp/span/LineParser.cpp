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

// A figure that is null says nothing.
bool AddFigure(value& from, double& sum) {
    double number = 0;
    if (from.get(number) != simdjson::SUCCESS) {
        return bool(from.is_null());
    }
    sum += number;
    return true;
}

bool ReadGroup(std::string_view group, value& from, ResourceFigures& figures) {
    object members;
    return from.get_object().get(members) == simdjson::SUCCESS &&
           ForEachMember(members, [&](std::string_view key, value figure) {
               const auto add = [&](bool& has, double& sum) {
                   has = true;
                   return AddFigure(figure, sum);
               };
               if (group == "alloc") {
                   return key == "ai"      ? add(figures.hasAllocated, figures.allocatedInclusive)
                          : key == "ae"    ? add(figures.hasAllocated, figures.allocatedExclusive)
                          : key == "apeak" ? add(figures.hasPeak, figures.peak)
                                           : true;
               }
               if (group == "free") {
                   return key == "di"   ? add(figures.hasReleased, figures.releasedInclusive)
                          : key == "de" ? add(figures.hasReleased, figures.releasedExclusive)
                                        : true;
               }
               return key == "ki" || key == "ui"   ? add(figures.hasCpu, figures.cpuInclusive)
                      : key == "ke" || key == "ue" ? add(figures.hasCpu, figures.cpuExclusive)
                                                   : true;
           });
}

bool ReadResources(value& from, ResourceFigures& figures) {
    object groups;
    return from.get_object().get(groups) == simdjson::SUCCESS &&
           ForEachMember(groups, [&](std::string_view key, value group) {
               if (key == "ntid") {
                   figures.hasThreads = true;
                   return AddFigure(group, figures.threads);
               }
               const bool isKnown =
                   key == "alloc" || key == "free" || key == "kcpu" || key == "ucpu";
               return !isKnown || ReadGroup(key, group, figures);
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
                      : key == "res"      ? ReadResources(member, facts.figures)
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
