#include "encode/Batch.h"
#include "encode/LineEncoder.h"
#include "encode/Resources.h"
#include "encode/SpanEncoder.h"
#include "export/Exports.h"
#include "export/SpanIds.h"
#include "export/ThreadLanes.h"
#include "read/HarmlessJson.h"
#include "span/SpanBuilder.h"

#include <algorithm>
#include <map>
#include <memory>
#include <simdjson.h>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

constexpr std::size_t spansPerLine = 256;

/// What becomes of an activity is said by tarn::otlp; times and links are those of the forest.
class OtlpWriter {
public:
    OtlpWriter(const ActivityForest& forest, const std::string& service, std::ostream& out)
        : m_forest(forest),
          m_out(out),
          m_ids(forest),
          m_options(OptionsWith(service)),
          m_encoder(tarn::otlp::MakeEncoder(tarn::otlp::Encoding::Json)) {
        for (Index index = 0; index < forest.Size(); ++index) {
            m_byId.emplace(forest[index].id, index);
        }
    }

    void Write() {
        std::map<ProcessId, std::vector<Index>> processes;
        for (Index index = 0; index < m_forest.Size(); ++index) {
            processes[m_forest[index].process].push_back(index);
            LearnHost(m_forest[index]);
        }
        for (const auto& [process, spans] : processes) {
            for (std::size_t first = 0; first < spans.size(); first += spansPerLine) {
                const std::size_t last = std::min(spans.size(), first + spansPerLine);
                WriteLine(spans, first, last);
            }
        }
    }

private:
    static tarn::otlp::Options OptionsWith(const std::string& service) {
        tarn::otlp::Options options;
        options.serviceName = service;
        return options;
    }

    // The host's name is in the end events of roots only.
    void LearnHost(const Activity& activity) {
        std::string_view host;
        if (activity.process.host.empty() && !activity.environment.empty() &&
            m_parser.parse(activity.environment)["host"].get(host) == simdjson::SUCCESS) {
            ResourcesOf(activity.process).SetHost(activity.process.number, host);
        }
    }

    // Within these a process is known by its number alone.
    tarn::otlp::Resources& ResourcesOf(const ProcessId& process) {
        const auto [it, isNew] = m_resources.try_emplace(process.host, m_options);
        if (isNew && !process.host.empty()) {
            it->second.SetHost(0, process.host);
        }
        return it->second;
    }

    void WriteLine(const std::vector<Index>& indices, std::size_t first, std::size_t last) {
        std::vector<tarn::otlp::EncodedSpan> spans;
        for (std::size_t place = first; place < last; ++place) {
            const Index index = indices[place];
            const tarn::otlp::ActivityFacts facts = FactsOf(index);
            const tarn::otlp::Span& span =
                m_builder.Build(facts, m_ids.IdentityOf(index), TextOf(m_forest.LinkOf(index)));
            if (const Index sponsor = OtherSponsorOf(index); sponsor != ActivityForest::none) {
                m_builder.LinkSponsor(m_ids.IdentityOf(sponsor));
            }
            spans.push_back(
                {ResourcesOf(m_forest[index].process).Of(facts), m_encoder->Encode(span)});
        }
        HarmlessJson json(m_out);
        for (const char letter : m_encoder->Assemble(tarn::otlp::GroupByResource(spans))) {
            json.Put(letter);
        }
        m_out << '\n';
    }

    // A client waits for work of another process, a server does it.
    tarn::otlp::SpanKind KindOf(Index index) const {
        const Index parent = m_forest.ParentOf(index);
        if (parent != ActivityForest::none && IsElsewhere(parent, index)) {
            return tarn::otlp::SpanKind::Server;
        }
        const std::vector<Index>& children = m_forest.ChildrenOf(index);
        const bool hasCallee = std::any_of(children.begin(), children.end(), [&](Index child) {
            return IsElsewhere(index, child);
        });
        return hasCallee ? tarn::otlp::SpanKind::Client : tarn::otlp::SpanKind::Internal;
    }

    bool IsElsewhere(Index index, Index other) const {
        return m_forest[index].process != m_forest[other].process;
    }

    // The sponsor, where another one is the parent, because it was the caller; else none.
    Index OtherSponsorOf(Index index) const {
        const Activity& activity = m_forest[index];
        const auto sponsor = m_byId.find(activity.sponsor);
        return activity.sponsor == activity.id || sponsor == m_byId.end() ||
                       sponsor->second == m_forest.ParentOf(index)
                   ? ActivityForest::none
                   : sponsor->second;
    }

    static tarn::otlp::ResourceFigures FiguresOf(const Figures& from) {
        tarn::otlp::ResourceFigures figures;
        figures.hasAllocated = from.hasAllocated;
        figures.allocatedInclusive = from.ai;
        figures.allocatedExclusive = from.ae;
        figures.hasPeak = from.hasPeak;
        figures.peak = from.apeak;
        figures.hasReleased = from.hasReleased;
        figures.releasedInclusive = from.di;
        figures.releasedExclusive = from.de;
        figures.hasCpu = from.hasCpu;
        figures.cpuInclusive = from.CpuInclusive();
        figures.cpuExclusive = from.CpuExclusive();
        figures.hasThreads = from.hasThreads;
        figures.threads = from.threads;
        return figures;
    }

    tarn::otlp::ActivityFacts FactsOf(Index index) const {
        const Activity& activity = m_forest[index];
        const TimeSpan times = SpanOf(m_forest, index);
        tarn::otlp::ActivityFacts facts;
        facts.id = activity.id;
        facts.name = activity.name;
        facts.root = activity.root;
        facts.session = activity.session;
        facts.request = activity.request;
        facts.user = activity.user;
        facts.site = activity.site;
        facts.description = activity.description;
        facts.process = activity.process.number;
        facts.thread = activity.beginThread;
        facts.begin = times.begin;
        facts.end = times.end;
        facts.hasEnd = activity.hasEnd;
        facts.result = activity.result;
        facts.kind = KindOf(index);
        facts.figures = FiguresOf(activity.figures);
        if (activity.hasEnd) {
            facts.exclusive = activity.ExclusiveTime();
        }
        facts.resultDetails = activity.resultDetails;
        facts.attributes = activity.attributes;
        facts.beginBody = activity.beginBody;
        facts.endBody = activity.endBody;
        return facts;
    }

    const ActivityForest& m_forest;
    std::ostream& m_out;
    SpanIds m_ids;
    std::unordered_map<std::string_view, Index> m_byId;
    const tarn::otlp::Options m_options;
    std::map<std::string_view, tarn::otlp::Resources> m_resources;  // by host
    const std::unique_ptr<tarn::otlp::SpanEncoder> m_encoder;
    tarn::otlp::SpanBuilder m_builder;
    simdjson::dom::parser m_parser;
};

}  // namespace

void ExportOtlp(const ActivityForest& forest, const std::string& service, std::ostream& out) {
    OtlpWriter(forest, service, out).Write();
}

}  // namespace tarnview
