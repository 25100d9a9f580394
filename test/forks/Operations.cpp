#include "Operations.h"

#include "tarn/ActivityContextProxy.h"
#include "tarn/ActivityHandOver.h"
#include "tarn/ActivityName.h"
#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/ContextAttributesUtils.h"
#include "tarn/ExceptionParser.h"
#include "tarn/Headers.h"
#include "tarn/LibraryCounters.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/Prometheus.h"
#include "tarn/ScopeWithVisualId.h"
#include "tarn/TarnSettings.h"
#include "tarn/ThreadContextPropagator.h"
#include "tarn/Trace.h"
#include "tarn/TracingSession.h"

#include "cvlcoreplatform/ComputerName.h"
#include "cvlcoreplatform/CorePlatformOptions.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LineBatch.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlcoreplatform/host/MessageActivity.h"
#include "cvlcoreplatform/host/TarnEnabled.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/SaveOnCrash.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"
#include "cvlsys/TReadWriteLock.h"
#include "cvlsys/TSystem.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace ForkMatrix {

namespace {

using std::chrono::milliseconds;
using tarn::ActivityContextProxy;
using tarn::ActivityScope;
using tarn::TarnSettings;

TarnSettings& Settings() {
    return TarnSettings::GetInstance();
}

/// Sets a switch to what it is not, and back.
void Toggle(void (*set)(bool), bool (*get)()) {
    const bool value = get();
    set(!value);
    set(value);
}

class Carrier : public tarn::ICarrier {
public:
    void Set(const TString& /*name*/, const TString& /*value*/) override {}
};

class Deaf : public Metrics::IMetricsListener {
public:
    void OnMetricsEvent(const Metrics::MetricsEvent& /*event*/) override {}
};

/// A context that is current on the calling thread.
class CurrentContext {
public:
    CurrentContext() { m_context.OpenScope(); }

    Metrics::Context& Get() { return m_context; }

private:
    Metrics::Context m_context{0, Metrics::Context::Create(false)};
};

std::shared_ptr<TLog::LogBackEnd> Nowhere() {
    return TLog::MakeJsonFileBackEnd("/dev/null");
}

std::atomic<int64> counted{0};

void SetDeliveryAsItIs() {
    Metrics::SetDelivery(Metrics::GetDelivery());
}

void TraceInAllWays() {
    ActivityScope outer("outer", {{"number", 1}});
    outer.Add({{"more", u"text"}});
    outer.Log({{"what", "happened"}});
    outer.AddContext(tarn::CustomContext(Metrics::NameValueList{{u"user", u"somebody"}}));
    static constinit tarn::ActivityName name{"inner"};
    ActivityScope inner(name);
    inner.Cancel({});
    static_cast<void>(outer.IsOff("outer") || outer.IsEitherOff(tarn::TraceRank::Default, "x"));
}

void TraceThroughProxy() {
    const ActivityContextProxy::Attributes attributes{{u"name", u"value"}};
    ActivityContextProxy proxy("proxy", attributes, attributes);
    proxy.PutActivityAttributes(attributes);
    proxy.PutContextAttributes(attributes);
    proxy.DetachFromThread();
    proxy.AttachToThread();
    proxy.Fail(u"reason", attributes);
    proxy.FailException(u"type", u"message");
    proxy.Cancel(attributes);
    proxy.Close();
}

void HandOver() {
    CurrentContext context;
    ActivityScope scope("handed over");
    scope.DetachFromThread();
    scope.AttachToThread();
    context.Get().DetachFromThread();
    context.Get().AttachToThread();
    static_cast<void>(context.Get().GetId());
}

void HandOverWork() {
    const tarn::ActivityHandOver handOver;
    tarn::ActivityHandOver::Run run(handOver, "run", tarn::TraceType::Untracked);
    run.DetachFromThread();
    run.AttachToThread();
}

void ContinueWork() {
    tarn::ActivityHandOver::Continuation continuation{tarn::ActivityHandOver()};
    const ActivityScope scope("continued");
    continuation.Leave();
}

void TraceThroughFrontDoor() {
    tarn::Scope scope("front door", {{"number", ~0ULL}});
    scope.Add("more", "text");
    scope.Log("what", "happened");
    scope.AddContext({{"user", "somebody"}});
    scope.Cancel();
    scope.Fail("reason");
    scope.FailException(std::runtime_error("message"));
    tarn::abi::tarn_fail_exception(
        tarn::abi::tarn_current(), "type", TARN_TO_NUL, "message", TARN_TO_NUL);
    tarn::Current().Add("id", scope.GetActivityId().View());
    tarn::Wrap("wrapped", [] {
        try {
            throw std::runtime_error("message");
        } catch (...) {
            tarn::Current().FailCurrentException();
        }
    })();
}

void SendRequestsThroughFrontDoor() {
    std::map<std::string, std::string> headers;
    {
        const tarn::Scope call("call");
        tarn::Inject(headers);
    }
    headers.emplace("tracestate", "other=1");
    const tarn::Scope serve(tarn::Extract(headers), "serve");
    tarn::Inject(headers);
}

void TraceActivitiesThroughFrontDoor() {
    tarn::Activity activity("activity");
    const tarn::Activity child = activity.Child("child");
    {
        const tarn::Resumed resumed(activity);
        tarn::Handoff handoff;
        const tarn::Handoff copy = handoff;
        const tarn::Scope scope(copy, "inside");
    }
    activity.FailException(std::runtime_error("message"));
    activity.End();
    activity.Add("after", "its end");
}

void ReadHeaders() {
    static_cast<void>(tarn::ActivityTracer::ExtractContext("R:R:0", "1,1"));
    static_cast<void>(tarn::ActivityTracer::GetRefusedHeaders());
}

void ChangeMonitor() {
    const tarn::TracingSession session;
    MetricsMonitor& monitor = session.GetMonitor();
    monitor.SetSink(nullptr);
    monitor.SetLimits({});
    monitor.SetAdditionalFields(true);
    static_cast<void>(monitor.GetStatistics());
    const ActivityScope scope("with additional fields");
}

class FinishedActivities final : public tarn::IFinishedActivityListener {
public:
    void OnFinished(const tarn::FinishedActivity& /*activity*/) noexcept override {}
};

void CountActivities() {
    static FinishedActivities listener;
    const tarn::TracingSession session;
    session.GetMonitor().SetFinishedActivityListener(&listener);
    tarn::SetLibraryCounting(true);
    { const ActivityScope scope("counted"); }
    static_cast<void>(tarn::GetLibraryCounters());
    static_cast<void>(tarn::PrometheusText());
}

void SaveOnCrash() {
    Metrics::SaveOnCrash({});
    const Metrics::CrashStack stack;
    Metrics::StopSavingOnCrash();
}

void EmitByHand() {
    const CurrentContext context;
    Metrics::Scope scope(Metrics::flagTracing);
    scope.OpenImpl(u"by hand");
    scope.EmitImpl(Metrics::MetricsEventType::NameValue, u"name", 1);
    scope.MultiEmitImpl(Metrics::MetricsEventType::NameValuePairs, u"names", {{u"name", 1}});
    Metrics::AttributeImpl(u"user", u"somebody", Metrics::flagTracing);
    Metrics::MultiAttributeImpl("multiNVPs", {{u"name", 1}}, Metrics::flagTracing);
}

void ComeAndGo() {
    const RefCntPtr<Metrics::IMetricsListener> listener = new Deaf;
    Metrics::MetricsManager& manager = Metrics::MetricsManager::GetInstance();
    manager.AddConsumer(listener, Metrics::flagTracing, false);
    manager.RemoveConsumer(listener);
}

void LogAll() {
    TLog::Logger::Get().LogMessage(TLog::Warn, u"a message");
    TLog::Logger::Get().Log(TLog::Warn, TLog::Event(u"event", TLog::Object::Make({})));
}

void LockBothWays() {
    static TReadWriteLock& lock = *new TReadWriteLock(0);
    { const TReadWriteLock::WriteGuard guard(lock); }
    { const TReadWriteLock::ReadGuard guard(lock); }
    const TReadWriteLock another(0);
}

void ParseException() {
    tarn::ExceptionParser::ParseException(std::make_exception_ptr(std::runtime_error("x")));
}

}  // namespace

const std::vector<Operation>& Operations() {
    static const auto& operations = *new std::vector<Operation>{
        // Settings.
        {"tarn::TarnSettings::SetOffs",
         "tarn::TarnSettings::GetInstance",
         [] {
             Settings().SetOffs({"one of them", "and another one"});
         }},
        {"tarn::TarnSettings::GetCopyOfOffs",
         "tarn::TarnSettings::ParseOffActivitiesFromString",
         [] {
             static_cast<void>(Settings().GetCopyOfOffs());
             static_cast<void>(TarnSettings::ParseOffActivitiesFromString(u"a,b"));
         }},
        {"tarn::TarnSettings::GetRankOn", "", [] { static_cast<void>(Settings().GetRankOn()); }},
        {"tarn::TarnSettings::SetRankOn",
         "",
         [] { Settings().SetRankOn(tarn::TraceRank::Default); }},
        {"tarn::TarnSettings::IsOff",
         "tarn::TarnSettings::SetOffs",
         [] {
             Settings().SetOffs({"off"});
             for (int i = 0; i < 100; ++i) {
                 static_cast<void>(Settings().IsOff("off") ||
                                   Settings().IsEitherOff(tarn::TraceRank::Default, "on"));
             }
         }},
        {"tarn::TarnSettings::AddEventAttributeMapping",
         "tarn::TarnSettings::RemoveEventAttributeMapping",
         [] {
             Settings().AddEventAttributeMapping(u"a name of some length", u"user");
             Settings().RemoveEventAttributeMapping(u"a name of some length");
         }},
        {"tarn::TarnSettings::GetEventAttributeMapping",
         "",
         [] { static_cast<void>(Settings().GetEventAttributeMapping(u"user")); }},
        {"tarn::TarnSettings::SetEventAttributeMappingToDefaults",
         "",
         [] { Settings().SetEventAttributeMappingToDefaults(); }},

        // Options.
        {"OptTarn::SetIsTarnEnabled",
         "OptTarn::GetIsTarnEnabled",
         [] { Toggle(OptTarn::SetIsTarnEnabled, OptTarn::GetIsTarnEnabled); }},
        {"OptTarn::SetIsTarnPlatforms",
         "OptTarn::GetIsTarnPlatforms",
         [] { Toggle(OptTarn::SetIsTarnPlatforms, OptTarn::GetIsTarnPlatforms); }},
        {"OptTarn::SetIsForegroundThreadContextEnabled",
         "OptTarn::GetIsForegroundThreadContextEnabled",
         [] {
             Toggle(OptTarn::SetIsForegroundThreadContextEnabled,
                    OptTarn::GetIsForegroundThreadContextEnabled);
         }},
        {"OptTarn::SetIsServer",
         "OptTarn::GetIsServer",
         [] { Toggle(OptTarn::SetIsServer, OptTarn::GetIsServer); }},
        {"OptTarn::SetIsUnitTest",
         "OptTarn::GetIsUnitTest",
         [] { Toggle(OptTarn::SetIsUnitTest, OptTarn::GetIsUnitTest); }},
        {"OptTarn::SetShouldLogForegroundActivity",
         "OptTarn::GetShouldLogForegroundActivity",
         [] {
             Toggle(OptTarn::SetShouldLogForegroundActivity,
                    OptTarn::GetShouldLogForegroundActivity);
         }},
        {"OptTarn::SetShouldLogResourceTracking",
         "OptTarn::GetShouldLogResourceTracking",
         [] {
             Toggle(OptTarn::SetShouldLogResourceTracking, OptTarn::GetShouldLogResourceTracking);
         }},
        {"OptTarn::SetShouldLogTransparent",
         "OptTarn::GetShouldLogTransparent",
         [] { Toggle(OptTarn::SetShouldLogTransparent, OptTarn::GetShouldLogTransparent); }},
        {"OptTarn::SetCorvalaCounterContextsCreated",
         "OptTarn::SetCorvalaCounterContextsClosed "
         "OptTarn::SetCorvalaCounterRequestContextsCreated "
         "OptTarn::SetCorvalaCounterRequestContextsClosed OptTarn::SetCorvalaCounterScopesOpened "
         "OptTarn::SetCorvalaCounterScopesClosed OptTarn::IncrementCorvalaCounterContextsClosed "
         "OptTarn::IncrementCorvalaCounterContextsCreated "
         "OptTarn::IncrementCorvalaCounterRequestContextsClosed "
         "OptTarn::IncrementCorvalaCounterRequestContextsCreated "
         "OptTarn::IncrementCorvalaCounterScopesClosed "
         "OptTarn::IncrementCorvalaCounterScopesOpened",
         [] {
             OptTarn::SetCorvalaCounterContextsCreated(&counted);
             OptTarn::SetCorvalaCounterContextsClosed(&counted);
             OptTarn::SetCorvalaCounterRequestContextsCreated(&counted);
             OptTarn::SetCorvalaCounterRequestContextsClosed(&counted);
             OptTarn::SetCorvalaCounterScopesOpened(&counted);
             OptTarn::SetCorvalaCounterScopesClosed(&counted);
             OptTarn::IncrementCorvalaCounterContextsCreated();
             OptTarn::IncrementCorvalaCounterContextsClosed();
             OptTarn::IncrementCorvalaCounterRequestContextsCreated();
             OptTarn::IncrementCorvalaCounterRequestContextsClosed();
             OptTarn::IncrementCorvalaCounterScopesOpened();
             OptTarn::IncrementCorvalaCounterScopesClosed();
         }},
        {"CorePlatformOptions::SetIsTarnEnabledFunction",
         "",
         [] { CorePlatformOptions::SetIsTarnEnabledFunction(&ActivityScope::IsTarnEnabled); }},
        {"IsTarnEnabled",
         "tarn::ActivityScope::IsTarnEnabled",
         [] { static_cast<void>(IsTarnEnabled()); }},

        // Tracing.
        {"tarn::ActivityScope::ActivityScope",
         "tarn::ActivityScope::~ActivityScope tarn::ActivityScope::Add tarn::ActivityScope::Log "
         "tarn::ActivityScope::AddContext tarn::ActivityScope::Cancel tarn::ActivityScope::IsOff "
         "tarn::ActivityScope::IsEitherOff",
         TraceInAllWays},
        {"tarn::ActivityScope::DetachFromThread",
         "tarn::ActivityScope::AttachToThread Metrics::Context::AttachToThread "
         "Metrics::Context::DetachFromThread Metrics::Context::GetId",
         HandOver},
        {"tarn::ActivityContextProxy::ActivityContextProxy",
         "tarn::ActivityContextProxy::~ActivityContextProxy "
         "tarn::ActivityContextProxy::AttachToThread tarn::ActivityContextProxy::DetachFromThread "
         "tarn::ActivityContextProxy::Cancel tarn::ActivityContextProxy::Close "
         "tarn::ActivityContextProxy::Fail tarn::ActivityContextProxy::FailException "
         "tarn::ActivityContextProxy::PutActivityAttributes "
         "tarn::ActivityContextProxy::PutContextAttributes",
         TraceThroughProxy},
        {"tarn::ActivityTracer::GetCurrentActivityContext",
         "tarn::ActivityTracer::injectContext "
         "tarn::ThreadContextPropagator::ThreadContextPropagator",
         [] {
             const ActivityScope scope("injecting");
             Carrier carrier;
             tarn::ActivityTracer::injectContext(carrier);
             static_cast<void>(tarn::ActivityTracer::GetCurrentActivityContext());
             const tarn::ThreadContextPropagator propagator;
         }},
        {"tarn::ScopeWithVisualId::ScopeWithVisualId",
         "tarn::ScopeWithVisualId::~ScopeWithVisualId",
         [] { const tarn::ScopeWithVisualId scope("visual", Metrics::flagTracing, u"w", u"d"); }},
        {"tarn::ContextAttributesUtils::Set",
         "tarn::ContextAttributesUtils::SetCustomContextAttributes",
         [] {
             const CurrentContext context;
             tarn::ContextAttributesUtils::Set({{u"user", u"somebody"}});
             tarn::ContextAttributesUtils::SetCustomContextAttributes({{u"user", u"somebody"}});
         }},
        {"tarn::ActivityHandOver::ActivityHandOver",
         "tarn::ActivityHandOver::Run::Run tarn::ActivityHandOver::Run::AttachToThread "
         "tarn::ActivityHandOver::Run::DetachFromThread "
         "tarn::ActivityHandOver::Run::OpenContext::OpenContext",
         HandOverWork},
        {"tarn::ActivityHandOver::Continuation::Continuation",
         "tarn::ActivityHandOver::Continuation::~Continuation "
         "tarn::ActivityHandOver::Continuation::Leave",
         ContinueWork},
        {"tarn_scope_open",
         "tarn_scope_open_at tarn_scope_close tarn_add tarn_log tarn_add_context tarn_cancel "
         "tarn_fail "
         "tarn_fail_exception "
         "tarn_current tarn_get_id tarn::abi::FailException tarn::abi::FailCurrentException",
         TraceThroughFrontDoor},
        {"tarn_activity_begin",
         "tarn_activity_end tarn_activity_retain tarn_activity_release tarn_activity_resume "
         "tarn_activity_suspend tarn_handoff_take tarn_handoff_retain tarn_handoff_release",
         TraceActivitiesThroughFrontDoor},
        {"tarn_extract",
         "tarn_extract_request tarn_inject tarn_header_value tarn::ActivityHandOver::FromElsewhere",
         SendRequestsThroughFrontDoor},
        {"tarn::ActivityTracer::ExtractContext",
         "tarn::ActivityTracer::GetRefusedHeaders",
         ReadHeaders},
        {"MetricsMonitor::SetSink",
         "MetricsMonitor::SetLimits MetricsMonitor::SetAdditionalFields "
         "MetricsMonitor::GetStatistics",
         ChangeMonitor},
        {"tarn::enabled::PrometheusText",
         "MetricsMonitor::SetFinishedActivityListener tarn::SetLibraryCounting "
         "tarn::GetLibraryCounters",
         CountActivities},
        {"tarn::TracingSession::TracingSession",
         "tarn::TracingSession::~TracingSession MetricsMonitor::MetricsMonitor "
         "MetricsMonitor::~MetricsMonitor MetricsMonitor::Register MetricsMonitor::Unregister",
         [] {
             const tarn::TracingSession session;
             const ActivityScope scope("in a session");
         }},
        {"tarn::ExceptionParser::ParseException", "", ParseException},

        // The bus.
        {"Metrics::SetDelivery", "", SetDeliveryAsItIs},
        {"Metrics::CallBetweenDeliveries",
         "",
         [] { Metrics::CallBetweenDeliveries(std::chrono::seconds(30), [] {}); }},
        {"Metrics::SetBeforeLastWords", "", [] { Metrics::SetBeforeLastWords(nullptr); }},
        {"tarn::enabled::SetSampledAttributeEnabled",
         "",
         [] { tarn::SetSampledAttributeEnabled(false); }},
        {"Metrics::GetDelivery", "", [] { static_cast<void>(Metrics::GetDelivery()); }},
        {"Metrics::Flush", "", [] { Metrics::Flush(milliseconds(1000)); }},
        {"Metrics::Shutdown",
         "Metrics::SetDelivery",
         [] {
             const ActivityScope scope("before a shutdown");
             Metrics::DeliveryOptions options = Metrics::GetDelivery();
             Metrics::Shutdown(milliseconds(1000));
             Metrics::SetDelivery(options);
         }},
        {"Metrics::MetricsManager::AddConsumer",
         "Metrics::MetricsManager::RemoveConsumer Metrics::MetricsManager::GetInstance",
         ComeAndGo},
        {"Metrics::TestBits",
         "Metrics::TestBitsAndContext Metrics::MetricsManager::GetThreadContext "
         "Metrics::MetricsThreadContext::GetMetricsContextId",
         [] {
             static_cast<void>(Metrics::TestBits(1) || Metrics::TestBitsAndContext(1));
             static_cast<void>(
                 Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId());
         }},
        {"Metrics::SaveOnCrash",
         "Metrics::StopSavingOnCrash Metrics::CrashStack::CrashStack "
         "Metrics::CrashStack::~CrashStack",
         SaveOnCrash},
        {"Metrics::Context::Create",
         "Metrics::Context::Context Metrics::Context::~Context Metrics::Context::OpenScope",
         [] { const CurrentContext context; }},
        {"Metrics::Scope::OpenImpl",
         "Metrics::Scope::EmitImpl Metrics::Scope::MultiEmitImpl Metrics::AttributeImpl "
         "Metrics::MultiAttributeImpl Metrics::MetricsValue::MetricsValue",
         EmitByHand},
        {"Metrics::GetBusStatistics", "", [] { static_cast<void>(Metrics::GetBusStatistics()); }},
        {"Metrics::SetClock",
         "Metrics::ReadClock Metrics::ReadDefaultClock",
         [] {
             Metrics::SetClock(Metrics::SetClock(nullptr));
             static_cast<void>(Metrics::ReadClock());
             static_cast<void>(Metrics::ReadDefaultClock());
         }},

        // The log.
        {"TLog::Logger::Log",
         "TLog::Logger::LogMessage TLog::Logger::Get TLog::Logger::IsEnabled TLog::Event::Event",
         LogAll},
        {"TLog::SetMessageActivityFunction",
         "",
         [] {
             TLog::SetMessageActivityFunction([](TLog::MessageActivity&) { return true; });
             LogAll();
             TLog::SetMessageActivityFunction(nullptr);
         }},
        {"TLog::SetThreshold",
         "TLog::GetThreshold",
         [] { TLog::SetThreshold(TLog::GetThreshold()); }},
        {"TLog::ReplaceBackEnd",
         "TLog::MakeJsonFileBackEnd",
         [] { TLog::ReplaceBackEnd(Nowhere()); }},
        {"TLog::MakeJsonStderrBackEnd",
         "TLog::MakeJsonStdoutBackEnd",
         [] {
             TLog::MakeJsonStderrBackEnd();
             TLog::MakeJsonStdoutBackEnd();
         }},
        {"TLog::FlushLog", "", [] { TLog::FlushLog(); }},
        {"TLog::RotateLog",
         "",
         [] {
             LogAll();
             TLog::RotateLog();
         }},
        {"TLog::ReopenLog", "", [] { TLog::ReopenLog(); }},
        {"TLog::RequestLogRotation",
         "",
         [] {
             TLog::RequestLogRotation();
             LogAll();
         }},
        {"TLog::RequestLogReopening",
         "",
         [] {
             TLog::RequestLogReopening();
             LogAll();
         }},
        {"TLog::GetLogStatistics", "", [] { static_cast<void>(TLog::GetLogStatistics()); }},
        {"TLog::LineBatch::LineBatch",
         "TLog::LineBatch::~LineBatch",
         [] {
             const TLog::LineBatch batch(TLog::LineBatch::Holds::Lines);
             LogAll();
         }},

        // Ids, locks, memory and time.
        {"TUUID::CreateUUID",
         "TUUID::ToString tarn::ActivityContext::NewTarnId",
         [] {
             static_cast<void>(TUUID::CreateUUID());
             static_cast<void>(tarn::ActivityContext::NewTarnId());
         }},
        {"TReadWriteLock::LockWrite",
         "TReadWriteLock::LockRead TReadWriteLock::UnlockRead TReadWriteLock::UnlockWrite "
         "TReadWriteLock::TReadWriteLock TReadWriteLock::~TReadWriteLock",
         LockBothWays},
        {"TSystem::ThreadID",
         "TSystem::ProcessID TSystem::ComputerName",
         [] {
             static_cast<void>(TSystem::ThreadID() + TSystem::ProcessID());
             static_cast<void>(TSystem::ComputerName());
         }},
        {"TMalloc", "TFree", [] { TFree(TMalloc(1000)); }},
        {"corvala::memory::SetMemoryTrackingMode",
         "corvala::memory::GetMemoryTrackingMode",
         [] {
             using namespace corvala::memory;
             SetMemoryTrackingMode(MemoryTrackingAll);
             { const ActivityScope scope("measured"); }
             SetMemoryTrackingMode(MemoryTrackingOff);
         }},
        {"corvala::cputime::SetCpuTrackingEnabled",
         "corvala::cputime::GetCpuTrackingEnabled "
         "corvala::cputime::ThreadTimeScope::ThreadTimeScope "
         "corvala::cputime::ThreadTimeScope::~ThreadTimeScope",
         [] {
             using namespace corvala::cputime;
             SetCpuTrackingEnabled(true);
             { const ActivityScope scope("measured"); }
             SetCpuTrackingEnabled(false);
         }}};
    return operations;
}

}  // namespace ForkMatrix
