#include "SessionState.h"

#include "Counting.h"
#include "KeepText.h"
#include "TreeKeeper.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityTracer.h"
#include "tarn/Headers.h"
#include "tarn/IMetricsMonitorSink.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlcoreplatform/host/MessageActivity.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/SaveOnCrash.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

namespace tarn {
namespace {

using corvala::memory::MemoryTrackingMode;

/// With it every scope is off at once, before anything is known of it.
constexpr auto nothingOn = TraceRank(std::numeric_limits<int32>::min());

bool IsOff(const SessionOptions& options) {
    return options.log == "off";
}

/// Null where the logger is to stay as it is.
std::shared_ptr<TLog::LogBackEnd> MakeBackEnd(const SessionOptions& options) {
    if (options.log.empty() || IsOff(options)) {
        return nullptr;
    }
    if (options.log == "stderr") {
        return TLog::MakeJsonStderrBackEnd();
    }
    if (options.log == "stdout") {
        return TLog::MakeJsonStdoutBackEnd();
    }
    TLog::LogFileLimits limits;
    limits.maxBytes = options.fileBytes;
    limits.maxFiles = options.keptFiles;
    limits.useJournal = options.journal;
    return TLog::MakeJsonFileBackEnd(options.log, limits);
}

/// The program's sink, which it shares with the monitor.
class SharedSink : public IMetricsMonitorSink {
public:
    explicit SharedSink(std::shared_ptr<IMetricsMonitorSink> sink) : m_sink(std::move(sink)) {}

    void Log(const TLog::Event& event) override { m_sink->Log(event); }

private:
    const std::shared_ptr<IMetricsMonitorSink> m_sink;
};

std::shared_ptr<IMetricsMonitorSink> OrLog(std::shared_ptr<IMetricsMonitorSink> sink) {
    return sink != nullptr ? std::move(sink) : std::make_shared<MetricsMonitor::LogSink>();
}

constexpr auto withoutLimit = std::chrono::milliseconds::max();

/// The log says by which rules trees are left out, and how late lines may come.
void LogRules(const KeepRules& rules) {
    TLog::Logger& logger = TLog::Logger::Get();
    if (!logger.IsEnabled(TLog::Info)) {
        return;
    }
    TLog::NameTable body;
    body.emplace(u"late", TLog::Literal::Double(HasConditions(rules) ? LatenessOf(rules) : 0, 0));
    body.emplace(u"rules", TLog::Literal::String(TString(ToText(rules))));
    logger.Log(TLog::Info,
               TLog::Event(TString(u"tarn-keep-rules"), TLog::Object::Make(std::move(body))));
}

/// What waits when the process ends or crashes while there is a session.
class WaitingAtEnd {
public:
    /// Null for none. The sink stays until there is another one.
    static void Set(KeepSink* sink) {
        static const bool isRegistered = [] {
            std::atexit(Write);
            std::at_quick_exit(Write);
            return true;
        }();
        static_cast<void>(isRegistered);
        s_sink.store(sink, std::memory_order_release);
        Metrics::SetBeforeLastWords(sink != nullptr ? WriteInCrash : nullptr);
    }

private:
    static void Write() {
        if (KeepSink* const sink = s_sink.exchange(nullptr)) {
            const std::chrono::milliseconds deadline = Metrics::GetDelivery().exitDeadline;
            Metrics::Flush(deadline);
            Metrics::CallBetweenDeliveries(
                deadline, [sink] { sink->Finish(KeepSink::Afterwards::HandOnFurtherLines); });
        }
    }

    static void WriteInCrash() noexcept {
        if (KeepSink* const sink = s_sink.load(std::memory_order_acquire)) {
            sink->Finish(KeepSink::Afterwards::SortFurtherLines);
        }
    }

    static constinit std::atomic<KeepSink*> s_sink;
};

constinit std::atomic<KeepSink*> WaitingAtEnd::s_sink{nullptr};

Metrics::DeliveryOptions DeliveryOf(const SessionOptions& options) {
    Metrics::DeliveryOptions delivery = Metrics::GetDelivery();
    delivery.mode = options.delivery == Delivery::Synchronous ? Metrics::DeliveryMode::Synchronous
                                                              : Metrics::DeliveryMode::Asynchronous;
    delivery.whenFull = options.delivery == Delivery::Refusing ? Metrics::WhenQueueIsFull::Refuse
                                                               : Metrics::WhenQueueIsFull::Wait;
    delivery.queueBytes = options.queueBytes;
    delivery.exitDeadline = options.exitDeadline;
    return delivery;
}

MemoryTrackingMode ModeOf(MemoryFigures figures) {
    switch (figures) {
        case MemoryFigures::Allocations:
            return corvala::memory::MemoryTrackingAllocations;
        case MemoryFigures::All:
            return corvala::memory::MemoryTrackingAll;
        default:
            return corvala::memory::MemoryTrackingOff;
    }
}

/// As the activity's own lines name it: at the top of a tree by the id of the root.
bool FindActivityOfThread(TLog::MessageActivity& activity) {
    const std::shared_ptr<ActivityContext> current = ActivityTracer::GetCurrentActivityContext();
    if (current == nullptr) {
        return false;
    }
    activity.root = current->GetRootId();
    activity.id = current->GetTraceDepth() <= 0 ? activity.root : current->GetActivityId();
    return true;
}

/// Relative paths mean the folder that the program is started in, wherever it goes later.
std::string Absolute(const std::string& path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

}  // namespace

struct ProcessOptions::Saved {
    bool hasIds = OptTarn::GetIsForegroundThreadContextEnabled();
    bool isPlatform = OptTarn::GetIsTarnPlatforms();
    bool measuresTime = corvala::cputime::GetCpuTrackingEnabled();
    MemoryTrackingMode memory = corvala::memory::GetMemoryTrackingMode();
    TarnSettings::Names offs = TarnSettings::GetInstance().GetCopyOfOffs();
    TraceRank rank = TarnSettings::GetInstance().GetRankOn();
};

ProcessOptions::ProcessOptions() : m_saved(std::make_unique<const Saved>()) {}

ProcessOptions::~ProcessOptions() {
    OptTarn::SetIsForegroundThreadContextEnabled(m_saved->hasIds);
    OptTarn::SetIsTarnPlatforms(m_saved->isPlatform);
    corvala::cputime::SetCpuTrackingEnabled(m_saved->measuresTime);
    corvala::memory::SetMemoryTrackingMode(m_saved->memory);
    TarnSettings& settings = TarnSettings::GetInstance();
    settings.SetRankOn(m_saved->rank);
    try {
        if (settings.GetCopyOfOffs() != m_saved->offs) {
            settings.SetOffs(m_saved->offs);
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): without memory the names stay off
    }
}

Session::State::State(SessionOptions options)
    : m_chosen(std::move(options)),
      m_environment(m_chosen.readEnvironment ? ReadEnvironment() : SessionSettings()) {
    const std::string path = FindConfigFile(m_chosen.config, m_chosen.readEnvironment);
    const std::string config = path.empty() ? path : Absolute(path);
    FileText read = config.empty() ? FileText() : ReadConfigFile(config);
    const SessionSettings file = ReadConfigText(read.text, config);

    const SessionOptions wanted = Combine(file);
    ChangeLog(wanted);
    // The rest begins at once, whatever the process had before.
    m_inEffect = wanted;
    Tell(m_environment.errors);
    Tell(file.errors);
    if (!read.error.empty()) {
        Tell({"The configuration file " + config + " cannot be read: " + read.error});
    }
    Metrics::SetDelivery(DeliveryOf(wanted));
    BeginFigures();
    ChangeScopes(wanted);
    BeginTracing();
    if (HasConditions(wanted.keep) || !config.empty()) {
        BeginKeeping();
    } else if (wanted.sink != nullptr) {
        SetSink(wanted.sink);
    }
    if (!config.empty()) {
        try {
            m_watch.emplace(config, std::move(read.text), [this](const std::string& text) {
                OnConfigChange(text);
            });
        } catch (const std::system_error& error) {
            Tell({"Changes of " + config + " will not be noticed: " + error.what()});
        }
    }
}

Session::State::~State() {
    m_watch.reset();
    Metrics::Flush(m_chosen.exitDeadline);
    if (m_keep != nullptr) {
        EndKeeping();
    }
    TLog::SetMessageActivityFunction(nullptr);
    EndCounting(m_session->GetMonitor());
    SetCountedMonitor({});
}

void Session::State::SetSink(std::shared_ptr<IMetricsMonitorSink> sink) {
    if (m_keep != nullptr) {
        std::shared_ptr<IMetricsMonitorSink> next = OrLog(std::move(sink));
        Metrics::CallBetweenDeliveries(
            withoutLimit, [this, &next]() { next = m_keep->SetNext(std::move(next)); });
        return;
    }
    m_session->GetMonitor().SetSink(sink != nullptr ? std::make_unique<SharedSink>(std::move(sink))
                                                    : nullptr);
}

SessionOptions Session::State::Combine(const SessionSettings& file) const {
    SessionOptions options = m_chosen;
    Apply(file, options);
    Apply(m_environment, options);
    return options;
}

void Session::State::Change(const SessionOptions& next) {
    ChangeLog(next);
    if (next.delivery != m_inEffect.delivery || next.queueBytes != m_inEffect.queueBytes) {
        Metrics::SetDelivery(DeliveryOf(next));
    }
    if (next.cpu != m_inEffect.cpu || next.memory != m_inEffect.memory) {
        Tell(
            {"Whether processor time and memory are measured is chosen when the program "
             "starts; the change in the configuration file will hold then."});
    }
    ChangeScopes(next);
    if (next.counters != m_inEffect.counters || next.countedNames != m_inEffect.countedNames) {
        ChangeCounting(next);
    }
    ChangeExtras(next.extras);
    if (m_keep != nullptr && ToText(next.keep) != ToText(m_inEffect.keep)) {
        LogRules(next.keep);
        SetSampledAttributeEnabled(next.keep.sampled);
        Metrics::CallBetweenDeliveries(withoutLimit, [this, &next] {
            try {
                m_keep->SetRules(next.keep);
            } catch (...) {  // NOLINT(bugprone-empty-catch): what a sink throws costs its line
            }
        });
    }
    m_inEffect = next;
}

void Session::State::ChangeLog(const SessionOptions& next) {
    if (next.log == m_inEffect.log && next.fileBytes == m_inEffect.fileBytes &&
        next.keptFiles == m_inEffect.keptFiles && next.journal == m_inEffect.journal) {
        return;
    }
    try {
        if (std::shared_ptr<TLog::LogBackEnd> backEnd = MakeBackEnd(next)) {
            TLog::ReplaceBackEnd(std::move(backEnd));
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        Tell({"The log stays where it is: " + std::string(error.what())});
    }
}

void Session::State::ChangeScopes(const SessionOptions& next) {
    TarnSettings& settings = TarnSettings::GetInstance();
    const TarnSettings::Names names(next.off.begin(), next.off.end());
    if (!(names.empty() && m_inEffect.off.empty()) && names != settings.GetCopyOfOffs()) {
        settings.SetOffs(names);
    }
    settings.SetRankOn(IsOff(next) ? nothingOn : TraceRank(next.rank));
}

void Session::State::ChangeCounting(const SessionOptions& next) {
    MetricsMonitor& monitor = m_session->GetMonitor();
    if (next.counters) {
        BeginCounting(monitor, next.countedNames);
    } else {
        EndCounting(monitor);
    }
}

void Session::State::ChangeExtras(bool hasExtras) {
    m_session->GetMonitor().SetAdditionalFields(hasExtras);
    TLog::SetMessageActivityFunction(hasExtras ? &FindActivityOfThread : nullptr);
}

void Session::State::BeginFigures() {
    corvala::cputime::SetCpuTrackingEnabled(m_inEffect.cpu);
    corvala::memory::SetMemoryTrackingMode(ModeOf(m_inEffect.memory));
    OptTarn::SetIsTarnPlatforms(m_inEffect.cpu || m_inEffect.memory != MemoryFigures::Off);
}

void Session::State::BeginTracing() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    if (!m_inEffect.environment.empty()) {
        OptTarn::SetServerEnvironment(TString(m_inEffect.environment));
    }
    if (!m_inEffect.site.empty()) {
        OptTarn::SetDefaultSiteNameGet(TString(m_inEffect.site));
    }
    if (m_inEffect.saveOnCrash) {
        try {
            Metrics::SaveOnCrash({});
        } catch (const std::exception& error) {
            Tell({"The log will not be saved in a crash: " + std::string(error.what())});
        }
    }
    m_session.emplace();
    MetricsMonitor& monitor = m_session->GetMonitor();
    Metrics::NameValueList identity;
    for (const auto& [name, value] : {std::pair("user", &m_inEffect.user),
                                      std::pair("site", &m_inEffect.site),
                                      std::pair("sid", &m_inEffect.sessionId)}) {
        if (!value->empty()) {
            identity.emplace_back(name, *value);
        }
    }
    monitor.SetRequestDefaults(std::move(identity), m_inEffect.requestIds);
    MetricsMonitor::Limits limits;
    limits.attributesPerScope = m_inEffect.attributesPerScope;
    limits.nestedScopes = m_inEffect.nestedScopes;
    monitor.SetLimits(limits);
    ChangeExtras(m_inEffect.extras);
    SetCountedMonitor(&monitor);
    if (m_inEffect.counters) {
        ChangeCounting(m_inEffect);
    }
}

void Session::State::BeginKeeping() {
    SetSampledAttributeEnabled(m_inEffect.keep.sampled);
    m_keep = std::make_shared<KeepSink>(m_inEffect.keep, OrLog(m_inEffect.sink));
    WaitingAtEnd::Set(m_keep.get());
    if (HasConditions(m_inEffect.keep)) {
        LogRules(m_inEffect.keep);
    }
    m_session->GetMonitor().SetSink(std::make_unique<SharedSink>(m_keep));
}

void Session::State::EndKeeping() const noexcept {
    SetSampledAttributeEnabled(false);
    WaitingAtEnd::Set(nullptr);
    Metrics::CallBetweenDeliveries(m_chosen.exitDeadline, [this] {
        m_keep->Finish(KeepSink::Afterwards::HandOnFurtherLines);
    });
    TLog::FlushLog();
}

void Session::State::OnConfigChange(const std::string& text) {
    try {
        const SessionSettings file = ReadConfigText(
            text, Absolute(FindConfigFile(m_chosen.config, m_chosen.readEnvironment)));
        Change(Combine(file));
        Tell(file.errors);
    } catch (...) {  // NOLINT(bugprone-empty-catch): the next change does the rest
    }
}

void Session::State::Tell(const std::vector<std::string>& sentences) {
    TLog::Logger& logger = TLog::Logger::Get();
    for (const std::string& sentence : sentences) {
        if (m_told.insert(sentence).second && logger.IsEnabled(TLog::Warn)) {
            logger.LogMessage(TLog::Warn, TString(sentence));
        }
    }
}

}  // namespace tarn
