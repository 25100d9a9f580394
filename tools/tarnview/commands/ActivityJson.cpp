#include "commands/ActivityJson.h"

#include <simdjson.h>
#include <string>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

class Writer {
public:
    Writer(Json& json, const ActivityForest& forest) : m_json(json), m_forest(forest) {}

    void WriteIdentity(Index index) {
        const Activity& activity = m_forest[index];
        const Index parent = m_forest.ParentOf(index);
        m_json.Member("name", activity.name);
        m_json.Member("id", activity.id);
        m_json.Member("root", activity.root);
        Text("parent", parent == ActivityForest::none ? "" : m_forest[parent].id);
        Text("link", LinkWord(m_forest.LinkOf(index)));
        m_json.Member("depth", static_cast<long long>(activity.depth));
        if (!activity.process.host.empty()) {
            m_json.Member("host", activity.process.host);
        }
        m_json.Member("pid", static_cast<long long>(activity.process.number));
        m_json.Member("tid", static_cast<long long>(activity.beginThread));
        Text("session", activity.session);
        Text("request", activity.request);
        Text("user", activity.user);
        Text("site", activity.site);
        Text("req-desc", activity.description);
    }

    void WriteTimes(Index index) {
        const Activity& activity = m_forest[index];
        m_json.Member("begin", FormatTimestamp(activity.begin));
        Text("end", activity.hasEnd ? FormatTimestamp(activity.end) : "");
        Seconds("elapsed_seconds", activity.hasEnd, activity.Duration());
        Seconds("exclusive_seconds", activity.hasEnd, activity.ExclusiveTime());
        Seconds("self_seconds", activity.hasEnd, m_forest.SelfTime(index));
    }

    void WriteResult(const Activity& activity) {
        Text("result", activity.result);
        m_json.Member("failed_below", static_cast<long long>(activity.failedChildren));
        m_json.Member("stopped_below", static_cast<long long>(activity.terminatedChildren));
    }

    void WriteFigures(const Figures& figures) {
        Number("cpu_seconds", figures.hasCpu, figures.CpuInclusive() / 1e6);
        Number("cpu_exclusive_seconds", figures.hasCpu, figures.CpuExclusive() / 1e6);
        Number("memory_bytes", figures.hasAllocated, figures.ai);
        Number("memory_exclusive_bytes", figures.hasAllocated, figures.ae);
        Number("released_bytes", figures.hasReleased, figures.di);
        Number("most_in_use_bytes", figures.hasPeak, figures.apeak);
        Number("threads", figures.hasThreads, figures.threads);
    }

    void WriteTables(const Activity& activity) {
        Table("environment", activity.environment);
        Table("attributes", activity.attributes);
        Table("body_begin", activity.beginBody);
        Table("body_end", activity.endBody);
        Table("rv", activity.resultDetails);
    }

    void WriteMessages(const std::vector<Message>& messages) {
        m_json.Key("messages");
        m_json.BeginArray();
        for (const Message& message : messages) {
            m_json.BeginObject();
            m_json.Member("time", FormatTimestamp(message.time));
            Text("severity", message.severity);
            m_json.Member("message", message.text);
            m_json.EndObject();
        }
        m_json.EndArray();
    }

private:
    static std::string_view LinkWord(LinkKind kind) {
        return kind == LinkKind::Named ? "named" : TextOf(kind);
    }

    void Text(std::string_view name, std::string_view text) {
        m_json.Key(name);
        if (text.empty()) {
            m_json.Nothing();
        } else {
            m_json.Text(text);
        }
    }

    void Number(std::string_view name, bool isKnown, double number) {
        m_json.Key(name);
        if (isKnown) {
            m_json.Number(number);
        } else {
            m_json.Nothing();
        }
    }

    void Seconds(std::string_view name, bool isKnown, Microseconds time) {
        Number(name, isKnown, static_cast<double>(time) / 1e6);
    }

    // A table of the log is a text that nobody has looked at yet.
    void Table(std::string_view name, const std::string& table) {
        simdjson::dom::object members;
        m_json.Key(name);
        if (!table.empty() && m_parser.parse(table).get(members) == simdjson::SUCCESS) {
            m_json.Raw(simdjson::minify(members));
        } else {
            m_json.Nothing();
        }
    }

    Json& m_json;
    const ActivityForest& m_forest;
    simdjson::dom::parser m_parser;
};

}  // namespace

void WriteActivity(Json& json,
                   const ActivityForest& forest,
                   ActivityForest::Index index,
                   std::optional<std::size_t> level,
                   const Messages* messages) {
    const Activity& activity = forest[index];
    Writer writer(json, forest);
    json.BeginObject();
    if (level) {
        json.Member("level", static_cast<long long>(*level));
    }
    writer.WriteIdentity(index);
    writer.WriteTimes(index);
    writer.WriteResult(activity);
    writer.WriteFigures(activity.figures);
    writer.WriteTables(activity);
    if (messages != nullptr) {
        writer.WriteMessages(messages->Of(index));
    }
    json.EndObject();
    json.EndLine();
}

}  // namespace tarnview
