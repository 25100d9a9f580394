#include "MonitorRun.h"

#include "EventLine.h"
#include "Model.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace model {
namespace {

std::u16string PlainText(const TString& text) {
    return std::u16string(text.View());
}

Node PlainNode(const TLog::Value* value) {
    Node node;
    if (!value) {
        return node;
    }
    switch (value->GetKind()) {
        case TLog::ValueKind::Object:
            node = Node::Object();
            for (const auto& [name, field] : static_cast<const TLog::Object*>(value)->GetFields()) {
                node.fields.push_back({PlainText(name), PlainNode(field.get())});
            }
            std::sort(node.fields.begin(), node.fields.end(), [](const Field& a, const Field& b) {
                return a.name < b.name;
            });
            return node;
        case TLog::ValueKind::Array:
            node = Node::Array();
            for (const auto& item : static_cast<const TLog::Array*>(value)->GetItems()) {
                node.items.push_back(PlainNode(item.get()));
            }
            return node;
        case TLog::ValueKind::Literal:
            break;
    }
    const auto& literal = *static_cast<const TLog::Literal*>(value);
    switch (literal.GetType()) {
        case TLog::LiteralType::String:
            return Node::Text(literal.GetString().View());
        case TLog::LiteralType::Integer:
            return Node::Integer(literal.GetInt());
        case TLog::LiteralType::Double:
            return Node::Real(literal.GetDouble());
        case TLog::LiteralType::FixedDouble:
            node = Node::Real(literal.GetDouble());
            node.kind = Node::Kind::FixedReal;
            return node;
        case TLog::LiteralType::Boolean:
            return Node::Boolean(literal.GetBool());
        case TLog::LiteralType::Null:
            node.kind = Node::Kind::Null;
            return node;
    }
    return node;
}

struct SinkError {};

void SetCounter(std::size_t index, std::atomic<int64>* counter) {
    switch (static_cast<Counter>(index)) {
        case Counter::ContextsCreated:
            return OptTarn::SetCorvalaCounterContextsCreated(counter);
        case Counter::ContextsClosed:
            return OptTarn::SetCorvalaCounterContextsClosed(counter);
        case Counter::RequestContextsCreated:
            return OptTarn::SetCorvalaCounterRequestContextsCreated(counter);
        case Counter::RequestContextsClosed:
            return OptTarn::SetCorvalaCounterRequestContextsClosed(counter);
        case Counter::ScopesOpened:
            return OptTarn::SetCorvalaCounterScopesOpened(counter);
        case Counter::ScopesClosed:
            return OptTarn::SetCorvalaCounterScopesClosed(counter);
    }
}

void SetCounterName(std::size_t index, const std::string& name) {
    switch (static_cast<Counter>(index)) {
        case Counter::ContextsCreated:
            return OptTarn::SetMetricsMonitorContextsCreatedConst(name);
        case Counter::ContextsClosed:
            return OptTarn::SetMetricsMonitorContextsClosedConst(name);
        case Counter::RequestContextsCreated:
            return OptTarn::SetMetricsMonitorRequestContextsCreatedConst(name);
        case Counter::RequestContextsClosed:
            return OptTarn::SetMetricsMonitorRequestContextsClosedConst(name);
        case Counter::ScopesOpened:
            return OptTarn::SetMetricsMonitorScopeOpenedConst(name);
        case Counter::ScopesClosed:
            return OptTarn::SetMetricsMonitorScopeClosedConst(name);
    }
}

void SetMappings(const std::vector<MappingChange>& changes) {
    tarn::TarnSettings& settings = tarn::TarnSettings::GetInstance();
    settings.SetEventAttributeMappingToDefaults();
    for (const MappingChange& change : changes) {
        if (change.remove) {
            settings.RemoveEventAttributeMapping(TString(std::u16string_view(change.name)));
        } else {
            settings.AddEventAttributeMapping(TString(std::u16string_view(change.name)),
                                              TString(std::u16string_view(change.target)));
        }
    }
}

}  // namespace

Entry PlainEntry(const TLog::Event& event, TLog::Severity severity) {
    Entry entry;
    entry.lineDifference = tarn::test::DifferenceOfLine(severity, event);
    const TLog::ActivityInfo* information = event.GetActivityInfo();
    if (!information) {
        entry.kind = Entry::Kind::DiagnosticEvent;
        entry.text = PlainText(event.GetName());
        entry.body = PlainNode(event.GetBody().get());
        return entry;
    }
    entry.kind = Entry::Kind::ActivityEvent;
    entry.event.name = PlainText(event.GetName());
    entry.event.body = PlainNode(event.GetBody().get());
    entry.event.time = information->GetTime().time_since_epoch().count();
    entry.event.processId = information->GetProcessId();
    entry.event.threadId = information->GetThreadId();
    entry.event.session = PlainText(information->GetSessionId());
    entry.event.request = PlainText(information->GetRequestId());
    entry.event.user = PlainText(information->GetUser());
    entry.event.site = PlainText(information->GetSite());
    entry.event.environment = PlainNode(information->GetEnvironment().get());
    entry.event.activity = PlainNode(information->GetActivity().get());
    entry.event.attributes = PlainNode(information->GetAttributes().get());
    return entry;
}

class MonitorRun::Sink : public IMetricsMonitorSink {
public:
    explicit Sink(MonitorRun& run) : m_run(run) {}

    void Log(const TLog::Event& event) override {
        m_run.m_journal.push_back(PlainEntry(event, TLog::Info));
        if (m_run.m_sinkThrows) {
            throw SinkError();
        }
    }

private:
    MonitorRun& m_run;
};

class MonitorRun::KnownIds : public IMetricsMonitorUUID {
public:
    explicit KnownIds(MonitorRun& run) : m_run(run) {}

    TUUID CreateUUID() override {
        Entry entry;
        entry.kind = Entry::Kind::IdTaken;
        m_run.m_journal.push_back(entry);
        return TUUID(IdAt(m_taken++, m_run.m_repeatingIds));
    }

private:
    MonitorRun& m_run;
    uint64 m_taken = 0;
};

class MonitorRun::BackEnd : public TLog::LogBackEnd {
public:
    explicit BackEnd(MonitorRun& run) : m_run(run) {}

    void Write(TLog::Severity severity, const TLog::Event& event) override {
        m_run.m_journal.push_back(PlainEntry(event, severity));
        m_run.m_journal.back().severity = severity;
    }

    void WriteMessage(TLog::Severity severity, const TString& text) override {
        Entry entry;
        entry.kind = Entry::Kind::Message;
        entry.severity = severity;
        entry.text = PlainText(text);
        m_run.m_journal.push_back(entry);
    }

private:
    MonitorRun& m_run;
};

MonitorRun::MonitorRun(const StreamOptions& options,
                       uint64 rootContextId,
                       std::vector<uint64> contextIds,
                       bool throughDefaultSink,
                       bool repeatingIds)
    : m_contextIds(std::move(contextIds)),
      m_rootContextId(rootContextId),
      m_throughDefaultSink(throughDefaultSink),
      m_repeatingIds(repeatingIds),
      m_formerBackEnd(TLog::ReplaceBackEnd(std::make_shared<BackEnd>(*this))),
      m_formerThreshold(TLog::GetThreshold()) {
    SetOptions(options);
}

MonitorRun::~MonitorRun() {
    m_monitor = RefCntPtr<MetricsMonitor>();
    OptTarn::SetCmonIncrementCounter([](const std::string&, uint64) {});
    for (std::size_t i = 0; i < numberOfCounters; ++i) {
        SetCounter(i, nullptr);
    }
    TLog::SetThreshold(static_cast<TLog::Severity>(m_formerThreshold));
    TLog::ReplaceBackEnd(m_formerBackEnd);
}

void MonitorRun::SetOptions(const StreamOptions& options) {
    OptTarn::SetIsTarnEnabled(options.isTarnEnabled);
    OptTarn::SetIsTarnPlatforms(options.isTarnPlatforms);
    OptTarn::SetIsForegroundThreadContextEnabled(options.isForegroundThreadContextEnabled);
    OptTarn::SetIsServer(options.isServer);
    OptTarn::SetIsUnitTest(options.isUnitTest);
    OptTarn::SetShouldLogForegroundActivity(options.shouldLogForegroundActivity);
    OptTarn::SetShouldLogResourceTracking(options.shouldLogResourceTracking);
    OptTarn::SetShouldLogTransparent(options.shouldLogTransparent);
    OptTarn::SetDefaultSiteNameGet(TString(std::u16string_view(options.defaultSiteName)));
    OptTarn::SetServerEnvironment(TString(std::u16string_view(options.serverEnvironment)));
    SetMappings(options.mappingChanges);
    for (std::size_t i = 0; i < numberOfCounters; ++i) {
        SetCounter(i, options.counterIsAttached[i] ? &m_counters[i] : nullptr);
        SetCounterName(i, options.counterNames[i]);
    }
    std::function<void(const std::string&, uint64)> callback;
    if (options.counterCallbackIsSet) {
        callback = [this, throws = options.counterCallbackThrows](const std::string& name,
                                                                  uint64 amount) {
            Entry entry;
            entry.kind = Entry::Kind::CounterCall;
            entry.counterName = name;
            entry.amount = amount;
            std::copy(m_counters.begin(), m_counters.end(), entry.counters.begin());
            m_journal.push_back(entry);
            if (throws) {
                throw std::runtime_error("the counter cannot be reached");
            }
        };
    }
    OptTarn::SetCmonIncrementCounter(std::move(callback));
    TLog::SetThreshold(static_cast<TLog::Severity>(options.severityThreshold));
    m_memoryModeOverride = options.memoryModeOverride;
    if (m_monitor) {
        m_monitor->OverrideMemoryTrackingModeForTest(
            static_cast<corvala::memory::MemoryTrackingMode>(m_memoryModeOverride));
    }
}

Observation MonitorRun::Construct() {
    return Observe([this] {
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(m_rootContextId));
        std::unique_ptr<IMetricsMonitorSink> sink;
        if (m_throughDefaultSink) {
            sink = std::make_unique<MetricsMonitor::LogSink>();
        } else {
            sink = std::make_unique<Sink>(*this);
        }
        m_monitor->EnableTest(sink.release(), new KnownIds(*this));
        m_monitor->OverrideMemoryTrackingModeForTest(
            static_cast<corvala::memory::MemoryTrackingMode>(m_memoryModeOverride));
    });
}

Observation MonitorRun::Handle(const Metrics::MetricsEvent& event, bool sinkThrows) {
    LetSinkThrow(sinkThrows);
    return Observe([this, &event] { m_monitor->OnMetricsEvent(event); });
}

Observation MonitorRun::Destroy() {
    return Observe([this] { m_monitor = RefCntPtr<MetricsMonitor>(); });
}

void MonitorRun::Register() {
    m_monitor->Register(true);
}

void MonitorRun::Unregister() {
    m_monitor->Unregister();
}

Observation MonitorRun::Look() {
    return Observe([] {});
}

Observation MonitorRun::Observe(const std::function<void()>& call) {
    Observation observation;
    try {
        call();
    } catch (const LogicException& exception) {
        Raised raised;
        raised.kind = Raised::Kind::Logic;
        raised.file = exception.GetFile();
        raised.text = exception.GetText();
        raised.line = exception.GetLine();
        raised.code = exception.GetErrorCode();
        raised.errorText = exception.GetError().GetText().ToUtf8();
        observation.raised = raised;
    } catch (const SinkError&) {
        observation.raised = Raised();
        observation.raised->kind = Raised::Kind::Sink;
    } catch (const std::exception& exception) {
        observation.raised = Raised();
        observation.raised->text = exception.what();
    }
    observation.journal.swap(m_journal);
    std::copy(m_counters.begin(), m_counters.end(), observation.counters.begin());
    if (m_monitor) {
        observation.openContexts = m_monitor->GetNumberOpenContexts();
        observation.openScopes = m_monitor->GetNumberOpenScopes();
    }
    for (const uint64 contextId : m_contextIds) {
        observation.openScopesOfContext.push_back(
            m_monitor ? m_monitor->GetNumberOpenScopesForContext(contextId) : 0);
    }
    return observation;
}

const ProcessFacts& PrepareProcess(ProcessTracking tracking) {
    static const ProcessFacts facts = [tracking] {
        ProcessFacts prepared;
        prepared.hostName = u"model-host";
        prepared.processId = TSystem::ProcessID();
        prepared.memoryMode = tracking.memoryMode;
        prepared.cpuTrackingEnabled = tracking.cpuTime;
        OptTarn::SetHostName(u"model-host");
        corvala::memory::SetMemoryTrackingMode(tracking.memoryMode);
        corvala::cputime::SetCpuTrackingEnabled(tracking.cpuTime);

        StreamOptions options;
        options.isUnitTest = false;
        options.isTarnPlatforms = true;
        MonitorRun run(options, 1, {}, false, false);
        run.Construct();
        Metrics::MetricsEvent event;
        event.id = 1;
        event.type = Metrics::MetricsEventType::OpenContext;
        run.Handle(event, false);
        event.contextId = 1;
        event.flags = Metrics::flagTracing;
        event.type = Metrics::MetricsEventType::OpenScope;
        run.Handle(event, false);
        event.type = Metrics::MetricsEventType::CloseScope;
        run.Handle(event, false);

        OptTarn::SetHostName(u"another-host");
        corvala::memory::SetMemoryTrackingMode(tracking.memoryMode ==
                                                       corvala::memory::MemoryTrackingAll
                                                   ? corvala::memory::MemoryTrackingOff
                                                   : corvala::memory::MemoryTrackingAll);
        corvala::cputime::SetCpuTrackingEnabled(!tracking.cpuTime);
        return prepared;
    }();
    return facts;
}

}  // namespace model
