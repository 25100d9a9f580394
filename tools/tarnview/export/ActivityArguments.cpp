#include "export/ActivityArguments.h"

#include "read/Rounding.h"

namespace tarnview {

namespace {

void GiveText(std::string_view name, std::string_view text, ArgumentSink& sink) {
    if (!text.empty() && text != "-") {
        sink.Text(name, text);
    }
}

}  // namespace

void ActivityArguments::Give(const ActivityForest& forest,
                             ActivityForest::Index index,
                             ArgumentSink& sink) {
    const Activity& activity = forest[index];
    GiveText("id", activity.id, sink);
    GiveText("root", activity.root, sink);
    GiveText("sponsor", activity.sponsor, sink);
    GiveText("caller", TextOf(forest.LinkOf(index)), sink);
    sink.Text("begin", FormatTimestamp(activity.begin));
    GiveText("session", activity.session, sink);
    GiveText("request", activity.request, sink);
    GiveText("user", activity.user, sink);
    GiveText("site", activity.site, sink);
    GiveText("req-desc", activity.description, sink);
    sink.Text("result", activity.hasEnd ? activity.result : "never ended");
    GiveText("result-details", activity.resultDetails == "{}" ? "" : activity.resultDetails, sink);
    if (activity.hasEnd) {
        sink.Number("elapsed-ms", Rounded(activity.elapsed * 1e3));
        sink.Number("exclusive-ms", Rounded(activity.exclusive * 1e3));
        sink.Number("exclusive-us", activity.ExclusiveTime());
    }
    const Figures& figures = activity.figures;
    if (figures.hasAllocated) {
        sink.Number("allocated-bytes", Rounded(figures.ai));
        sink.Number("allocated-exclusive-bytes", Rounded(figures.ae));
    }
    if (figures.hasCpu) {
        sink.Number("cpu-us", Rounded(figures.CpuInclusive()));
        sink.Number("cpu-exclusive-us", Rounded(figures.CpuExclusive()));
    }
    GiveTable("environment", activity.environment, sink);
    GiveTable("attributes", activity.attributes, sink);
    GiveTable("body at begin", activity.beginBody, sink);
    GiveTable("body at end", activity.endBody, sink);  // with the supplements
}

// A table of the log, of which nobody has looked yet whether it is one.
void ActivityArguments::GiveTable(std::string_view name,
                                  const std::string& table,
                                  ArgumentSink& sink) {
    simdjson::dom::object members;
    if (!table.empty() && m_parser.parse(table).get(members) == simdjson::SUCCESS &&
        members.size() != 0) {
        sink.Table(name, simdjson::minify(members));
    }
}

}  // namespace tarnview
