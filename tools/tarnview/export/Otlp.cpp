#include "export/Exports.h"
#include "export/Json.h"
#include "export/SpanIds.h"
#include "export/ThreadLanes.h"
#include "read/Rounding.h"

#include <algorithm>
#include <map>
#include <simdjson.h>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;
using simdjson::dom::element;

constexpr std::size_t spansPerLine = 256;

std::string Nanoseconds(Microseconds time) {
    return std::to_string(time) + "000";
}

class OtlpWriter {
public:
    OtlpWriter(const ActivityForest& forest, const std::string& service, std::ostream& out)
        : m_forest(forest),
          m_service(service),
          m_out(out),
          m_json(out),
          m_ids(forest) {
        for (Index index = 0; index < forest.Size(); ++index) {
            m_byId.emplace(forest[index].id, index);
        }
    }

    void Write() {
        std::map<std::int64_t, std::vector<Index>> processes;
        for (Index index = 0; index < m_forest.Size(); ++index) {
            processes[m_forest[index].process].push_back(index);
        }
        for (const auto& [process, spans] : processes) {
            const Resource resource = ResourceOf(process, spans);
            for (std::size_t first = 0; first < spans.size(); first += spansPerLine) {
                const std::size_t last = std::min(spans.size(), first + spansPerLine);
                WriteLine(resource, spans, first, last);
            }
        }
    }

private:
    struct Resource {
        std::int64_t process = 0;
        std::string service;
        std::string host;
    };

    // The host's name is in the end events of roots only.
    Resource ResourceOf(std::int64_t process, const std::vector<Index>& spans) {
        Resource resource{process, m_service, ""};
        for (const Index index : spans) {
            const Activity& activity = m_forest[index];
            if (resource.service.empty() && activity.site != "-") {
                resource.service = activity.site;
            }
            std::string_view host;
            if (resource.host.empty() && !activity.environment.empty() &&
                m_parser.parse(activity.environment)["host"].get(host) == simdjson::SUCCESS) {
                resource.host = host;
            }
        }
        if (resource.service.empty()) {
            resource.service = "unknown_service";
        }
        return resource;
    }

    void WriteLine(const Resource& resource,
                   const std::vector<Index>& spans,
                   std::size_t first,
                   std::size_t last) {
        m_json.BeginObject();
        m_json.Key("resourceSpans");
        m_json.BeginArray();
        m_json.BeginObject();
        m_json.Key("resource");
        m_json.BeginObject();
        m_json.Key("attributes");
        m_json.BeginArray();
        WriteText("service.name", resource.service);
        WriteText("host.name", resource.host);
        WriteInteger("process.pid", resource.process);
        m_json.EndArray();
        m_json.EndObject();
        m_json.Key("scopeSpans");
        m_json.BeginArray();
        m_json.BeginObject();
        m_json.Key("scope");
        m_json.BeginObject();
        m_json.Member("name", "tarn");
        m_json.EndObject();
        m_json.Key("spans");
        m_json.BeginArray();
        for (std::size_t index = first; index < last; ++index) {
            WriteSpan(spans[index]);
        }
        m_json.EndArray();
        m_json.EndObject();
        m_json.EndArray();
        m_json.EndObject();
        m_json.EndArray();
        m_json.EndObject();
        m_json.NextText();
        m_out << '\n';
    }

    // 1: internal, 2: server, adopted from another process, 3: client, which waits for such a one.
    long long KindOf(Index index) const {
        const Index parent = m_forest.ParentOf(index);
        if (parent != ActivityForest::none && IsElsewhere(parent, index)) {
            return 2;
        }
        const std::vector<Index>& children = m_forest.ChildrenOf(index);
        const bool hasCallee = std::any_of(children.begin(), children.end(), [&](Index child) {
            return IsElsewhere(index, child);
        });
        return hasCallee ? 3 : 1;
    }

    bool IsElsewhere(Index index, Index other) const {
        return m_forest[index].process != m_forest[other].process;
    }

    // To the sponsor, where another one is the parent, because it was the caller.
    void WriteLinks(Index index) {
        const Activity& activity = m_forest[index];
        const auto sponsor = m_byId.find(activity.sponsor);
        if (activity.sponsor == activity.id || sponsor == m_byId.end() ||
            sponsor->second == m_forest.ParentOf(index)) {
            return;
        }
        m_json.Key("links");
        m_json.BeginArray();
        m_json.BeginObject();
        m_json.Member("traceId", m_ids.TraceIdOf(sponsor->second));
        m_json.Member("spanId", m_ids.SpanIdOf(sponsor->second));
        m_json.Key("attributes");
        m_json.BeginArray();
        WriteText("tarn.link", "sponsor");
        m_json.EndArray();
        m_json.EndObject();
        m_json.EndArray();
    }

    void WriteSpan(Index index) {
        const Activity& activity = m_forest[index];
        const Index parent = m_forest.ParentOf(index);
        m_json.BeginObject();
        m_json.Member("traceId", m_ids.TraceIdOf(index));
        m_json.Member("spanId", m_ids.SpanIdOf(index));
        if (parent != ActivityForest::none) {
            m_json.Member("parentSpanId", m_ids.SpanIdOf(parent));
        }
        m_json.Member("name", activity.name);
        m_json.Member("kind", KindOf(index));
        const TimeSpan span = SpanOf(m_forest, index);
        m_json.Member("startTimeUnixNano", Nanoseconds(span.begin));
        m_json.Member("endTimeUnixNano", Nanoseconds(span.end));
        m_json.Key("attributes");
        m_json.BeginArray();
        WriteAttributes(activity);
        WriteText("tarn.caller", TextOf(m_forest.LinkOf(index)));
        m_json.EndArray();
        WriteSupplements(activity);
        WriteLinks(index);
        WriteStatus(activity);
        m_json.EndObject();
    }

    void WriteAttributes(const Activity& activity) {
        WriteText("tarn.id", activity.id);
        WriteInteger("thread.id", activity.beginThread);
        if (activity.hasEnd) {
            WriteInteger("tarn.exclusive", activity.ExclusiveTime());
        }
        WriteText("tarn.result", activity.result);
        WriteText("tarn.request", activity.request);
        WriteText("tarn.session", activity.session);
        WriteText("enduser.id", activity.user);
        WriteText("tarn.site", activity.site);
        WriteText("tarn.req-desc", activity.description);
        const Figures& figures = activity.figures;
        if (figures.hasAllocated) {
            WriteInteger("tarn.allocated.inclusive", Rounded(figures.ai));
            WriteInteger("tarn.allocated.exclusive", Rounded(figures.ae));
        }
        if (figures.hasPeak) {
            WriteInteger("tarn.allocated.peak", Rounded(figures.apeak));
        }
        if (figures.hasReleased) {
            WriteInteger("tarn.released.inclusive", Rounded(figures.di));
            WriteInteger("tarn.released.exclusive", Rounded(figures.de));
        }
        if (figures.hasThreads) {
            WriteInteger("tarn.threads", Rounded(figures.threads));
        }
        if (figures.hasCpu) {
            WriteInteger("tarn.cpu.inclusive", Rounded(figures.CpuInclusive()));
            WriteInteger("tarn.cpu.exclusive", Rounded(figures.CpuExclusive()));
        }
        WriteTable("", activity.attributes);
        // What was added while it ran replaces what it began with.
        WriteTable("body.", activity.beginBody, activity.endBody);
        WriteTable("body.", activity.endBody);
        WriteTable("result.", activity.resultDetails);
    }

    // Keys must not stand twice: members that `except` has as well are left out.
    void WriteTable(const std::string& prefix,
                    const std::string& table,
                    const std::string& except = "") {
        simdjson::dom::parser exceptParser;
        simdjson::dom::object members;
        simdjson::dom::object others;
        const bool hasOthers =
            !except.empty() && exceptParser.parse(except).get(others) == simdjson::SUCCESS;
        if (table.empty() || m_parser.parse(table).get(members) != simdjson::SUCCESS) {
            return;
        }
        for (const auto member : members) {
            const bool isOther = hasOthers && others[member.key].error() == simdjson::SUCCESS;
            if (member.key != "logs" && !isOther) {
                WriteValue(prefix + std::string(member.key), member.value);
            }
        }
    }

    void WriteSupplements(const Activity& activity) {
        simdjson::dom::parser parser;
        simdjson::dom::array logs;
        if (activity.endBody.empty() ||
            parser.parse(activity.endBody)["logs"].get(logs) != simdjson::SUCCESS) {
            return;
        }
        m_json.Key("events");
        m_json.BeginArray();
        for (const element supplement : logs) {
            simdjson::dom::object members;
            std::string_view time;
            if (supplement.get(members) != simdjson::SUCCESS) {
                continue;
            }
            const bool hasTime = members["begin"].get(time) == simdjson::SUCCESS;
            m_json.BeginObject();
            m_json.Member("timeUnixNano",
                          Nanoseconds(ParseTimestamp(hasTime ? time : "").value_or(activity.end)));
            m_json.Member("name", "supplement");
            m_json.Key("attributes");
            m_json.BeginArray();
            for (const auto member : members) {
                if (member.key != "begin") {
                    WriteValue(std::string(member.key), member.value);
                }
            }
            m_json.EndArray();
            m_json.EndObject();
        }
        m_json.EndArray();
    }

    // 1: good, 2: failed; what ended early is neither.
    void WriteStatus(const Activity& activity) {
        m_json.Key("status");
        m_json.BeginObject();
        if (!activity.hasEnd) {
            m_json.Member("message", "never ended");
            m_json.Member("code", 2LL);
        } else if (activity.IsFailure()) {
            std::string_view message;
            if (!activity.resultDetails.empty() &&
                m_parser.parse(activity.resultDetails)["msg"].get(message) == simdjson::SUCCESS) {
                m_json.Member("message", message);
            }
            m_json.Member("code", 2LL);
        } else if (!activity.IsEarlyTermination()) {
            m_json.Member("code", 1LL);
        }
        m_json.EndObject();
    }

    void WriteText(std::string_view key, std::string_view text) {
        if (!text.empty() && text != "-") {
            BeginValue(key);
            m_json.Member("stringValue", text);
            EndValue();
        }
    }

    // Whole numbers are texts, for readers that keep numbers as doubles.
    void WriteInteger(std::string_view key, std::int64_t number) {
        BeginValue(key);
        m_json.Member("intValue", std::to_string(number));
        EndValue();
    }

    void WriteValue(const std::string& key, const element& value) {
        if (value.is_string()) {
            WriteText(key, std::string_view(value));
        } else if (value.is_int64()) {
            WriteInteger(key, std::int64_t(value));
        } else if (value.is_bool()) {
            BeginValue(key);
            m_json.Key("boolValue");
            m_json.Boolean(bool(value));
            EndValue();
        } else if (value.is_double()) {
            BeginValue(key);
            m_json.Key("doubleValue");
            m_json.Number(double(value));
            EndValue();
        } else if (!value.is_null()) {
            WriteText(key, simdjson::minify(value));
        }
    }

    void BeginValue(std::string_view key) {
        m_json.BeginObject();
        m_json.Member("key", key);
        m_json.Key("value");
        m_json.BeginObject();
    }

    void EndValue() {
        m_json.EndObject();
        m_json.EndObject();
    }

    const ActivityForest& m_forest;
    const std::string& m_service;
    std::ostream& m_out;
    Json m_json;
    SpanIds m_ids;
    std::unordered_map<std::string_view, Index> m_byId;
    simdjson::dom::parser m_parser;
};

}  // namespace

void ExportOtlp(const ActivityForest& forest, const std::string& service, std::ostream& out) {
    OtlpWriter(forest, service, out).Write();
}

}  // namespace tarnview
