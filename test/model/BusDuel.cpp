#include "BusDuel.h"

#include "BusEvents.h"
#include "Model.h"
#include "MonitorRun.h"
#include "RecordingListener.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"

#include <map>
#include <memory>
#include <numeric>
#include <utility>

#include <gtest/gtest.h>

namespace model {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using tarn::test::ContentOf;
using tarn::test::EventContent;
using tarn::test::RecordingListener;

constexpr int32 warnSeverity = 3;

// The bus gives ids in order, so those to come are known.
std::vector<uint64> IdsFrom(uint64 first) {
    std::vector<uint64> ids(8);
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}

class BusDuel {
public:
    BusDuel(const Stream& stream, Sightings* sightings, const Tampering& tampering)
        : m_stream(stream),
          m_sightings(sightings),
          m_tampering(tampering),
          m_options(Enabled(stream.options)),
          m_model(PrepareProcess(),
                  m_options,
                  m_rootId,
                  IdsFrom(m_rootId),
                  stream.throughDefaultSink,
                  stream.repeatingIds),
          m_run(m_options,
                m_rootId,
                IdsFrom(m_rootId),
                stream.throughDefaultSink,
                stream.repeatingIds) {}

    std::optional<Parting> Run() {
        Compare(m_model.Construct(), m_run.Construct());
        m_run.Register();
        m_foreign->CallOnEach([this](const MetricsEvent& event) { OnEvent(event); });
        Metrics::MetricsManager::GetInstance().AddConsumer(m_foreign, Metrics::flagTracing, true);
        m_contexts.emplace(m_stream.rootContextId, std::make_unique<Metrics::Context>(0, m_rootId));

        for (m_step = 0; m_step < m_stream.steps.size() && !m_parting; ++m_step) {
            const Step& step = m_stream.steps[m_step];
            if (step.options) {
                m_options = Enabled(*step.options);
                m_model.SetOptions(m_options);
                m_run.SetOptions(m_options);
            }
            m_sinkThrows = step.sinkThrows;
            m_run.LetSinkThrow(m_sinkThrows);
            Perform(step.event);
        }
        EndAll();

        Metrics::MetricsManager::GetInstance().RemoveConsumer(m_foreign);
        m_run.Unregister();
        Compare(m_model.Destroy(), m_run.Destroy());
        return m_parting;
    }

private:
    // A monitor is registered only if tracing is enabled.
    static StreamOptions Enabled(StreamOptions options) {
        options.isTarnEnabled = true;
        return options;
    }

    // Emits the event, if an operation of the bus does.
    void Perform(const MetricsEvent& event) {
        const auto scope = m_scopes.find(event.id);
        switch (event.type) {
            case MetricsEventType::CreateContext:
                CreateContext(event);
                break;
            case MetricsEventType::OpenContext:
                if (const auto context = m_contexts.find(event.id); context != m_contexts.end()) {
                    context->second->OpenScope();
                }
                break;
            case MetricsEventType::CloseContext:
                m_contexts.erase(event.id);
                break;
            case MetricsEventType::OpenScope:
                if (scope == m_scopes.end() && MakeCurrent(event.contextId)) {
                    OpenScope(event);
                }
                break;
            case MetricsEventType::CloseScope:
                m_scopes.erase(event.id);
                break;
            case MetricsEventType::NameValue:
                if (scope != m_scopes.end()) {
                    ExpectOf(event);
                    scope->second->EmitImpl(
                        event.type, event.name, Metrics::MetricsValue(event.value));
                }
                break;
            case MetricsEventType::NameValuePairs:
            case MetricsEventType::SupplementalPairs:
                if (scope != m_scopes.end()) {
                    ExpectOf(event);
                    scope->second->MultiEmitImpl(
                        event.type, event.name, Metrics::NameValueList(event.pairs));
                }
                break;
            case MetricsEventType::Attribute:
                if (MakeCurrent(event.contextId)) {
                    ExpectOf(event);
                    Metrics::AttributeImpl(Metrics::MetricsValue(event.name),
                                           Metrics::MetricsValue(event.value),
                                           event.flags);
                }
                break;
            case MetricsEventType::AttributePairs:
                if (MakeCurrent(event.contextId)) {
                    ExpectOf(event);
                    Metrics::MultiAttributeImpl(Metrics::MetricsValue(event.name),
                                                Metrics::NameValueList(event.pairs),
                                                event.flags);
                }
                break;
            case MetricsEventType::PostCloseScope:
                if (scope != m_scopes.end()) {
                    scope->second->SetPostScopeCloseEvents(
                        {static_cast<Metrics::MetricsCloseScopeActions>(event.value.integer)});
                }
                break;
        }
        if (m_expected) {
            Part("the event on the bus", testing::PrintToString(*m_expected), "nothing");
        }
    }

    void CreateContext(const MetricsEvent& event) {
        if (m_contexts.count(event.id) != 0) {
            return;
        }
        const bool isRoot = !MakeCurrent(event.contextId);
        m_contexts.emplace(
            event.id,
            std::make_unique<Metrics::Context>(event.flags, Metrics::Context::Create(isRoot)));
    }

    void OpenScope(const MetricsEvent& event) {
        ExpectOf(event);
        auto scope = std::make_unique<Metrics::Scope>(event.flags);
        scope->OpenImpl(Metrics::MetricsValue(event.name), Metrics::NameValueList(event.pairs));
        m_scopes.emplace(event.id, std::move(scope));
    }

    bool MakeCurrent(uint64 contextId) {
        const auto context = m_contexts.find(contextId);
        if (context == m_contexts.end()) {
            return false;
        }
        context->second->AttachToThread();
        return true;
    }

    void EndAll() {
        while (!m_scopes.empty()) {
            m_scopes.erase(std::prev(m_scopes.end()));
        }
        m_contexts.clear();
    }

    void ExpectOf(const MetricsEvent& event) { m_expected = ContentOf(event); }

    void OnEvent(const MetricsEvent& event) {
        m_foreign->Clear();
        if (m_expected && m_expected->type == event.type) {
            const EventContent content = ContentOf(event);
            if (!(content == *m_expected)) {
                Part("the event on the bus",
                     testing::PrintToString(*m_expected),
                     testing::PrintToString(content));
            }
            m_expected.reset();
        }
        MetricsEvent forModel = event;
        if (m_tampering.event) {
            m_tampering.event(m_step, forModel);
        }
        Observation expected = m_model.Handle(forModel, m_sinkThrows);
        if (m_sightings != nullptr) {
            m_sightings->Add(event, expected);
        }
        Observation actual = m_run.Look();
        if (m_tampering.observation) {
            m_tampering.observation(m_step, actual);
        }
        TakeReportOff(expected, actual);
        Compare(expected, actual);
    }

    // The bus catches what the monitor lets through, and says so.
    void TakeReportOff(Observation& expected, Observation& actual) {
        if (!expected.raised) {
            return;
        }
        expected.raised.reset();
        if (warnSeverity < m_options.severityThreshold) {
            return;
        }
        const bool isReported =
            !actual.journal.empty() && actual.journal.back().kind == Entry::Kind::Message &&
            actual.journal.back().severity == warnSeverity &&
            StartsWith(actual.journal.back().text, u"A listener of the metrics bus threw: ");
        if (isReported) {
            actual.journal.pop_back();
        } else {
            Part("the report of an exception", "a warning", "nothing");
        }
    }

    void Compare(const Observation& expected, const Observation& actual) {
        if (const auto difference = m_comparison.FirstDifference(expected, actual)) {
            Part(difference->field, difference->expected, difference->actual);
        }
    }

    void Part(std::string field, std::string expected, std::string actual) {
        if (!m_parting) {
            m_parting = Parting{static_cast<int64>(m_step),
                                {std::move(field), std::move(expected), std::move(actual)}};
        }
    }

    const Stream& m_stream;
    Sightings* const m_sightings;
    const Tampering& m_tampering;
    StreamOptions m_options;
    const uint64 m_rootId = Metrics::Context::Create(true);
    Model m_model;
    MonitorRun m_run;
    Comparison m_comparison;
    const RefCntPtr<RecordingListener> m_foreign = new RecordingListener;
    std::map<uint64, std::unique_ptr<Metrics::Context>> m_contexts;
    std::map<uint64, std::unique_ptr<Metrics::Scope>> m_scopes;
    std::optional<EventContent> m_expected;
    std::optional<Parting> m_parting;
    std::size_t m_step = 0;
    bool m_sinkThrows = false;
};

}  // namespace

std::optional<Parting> RunStreamOnTheBus(const Stream& stream,
                                         Sightings* sightings,
                                         const Tampering& tampering) {
    return BusDuel(stream, sightings, tampering).Run();
}

}  // namespace model
