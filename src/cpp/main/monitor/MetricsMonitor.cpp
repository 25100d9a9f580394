// A monitor's life, its subscription, and the dispatch of events to their handlers.
#include "tarn/MetricsMonitor.h"

#include "LogicAssert.h"
#include "MonitorRecords.h"
#include "ResourceTracking.h"
#include "ScopeStateDump.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <utility>

namespace {

constexpr const char* sourceFile = "src/cpp/main/MetricsMonitor";

}  // namespace

IMetricsMonitorSink::~IMetricsMonitorSink() = default;

MetricsMonitor::LogSink::~LogSink() = default;

void MetricsMonitor::LogSink::Log(const TLog::Event& event) {
    TLog::Logger& logger = TLog::Logger::Get();
    if (logger.IsEnabled(TLog::Info)) {
        logger.Log(TLog::Info, event);
    }
}

MetricsMonitor::MetricsMonitor(uint64 contextId) : m_records(std::make_unique<Records>(contextId)) {
    if (!OptTarn::GetIsTarnEnabled()) {
        return;
    }
    TLog::Logger& logger = TLog::Logger::Get();
    if (logger.IsEnabled(TLog::Info)) {
        logger.LogMessage(
            TLog::Info,
            TFormatString(u"Opening MetricsMonitor for context %1").Arg(contextId).ToString());
    }
    // The root context exists before any event arrives.
    Metrics::EventView creation;
    creation.type = Metrics::MetricsEventType::CreateContext;
    creation.id = contextId;
    OnCreateContext(creation);
}

MetricsMonitor::~MetricsMonitor() {
    m_records->openWork.Withdraw();
}

void MetricsMonitor::Register(bool flag) {
    if (OptTarn::GetIsTarnEnabled()) {
        m_records->openWork.Announce();
        Metrics::MetricsManager::GetInstance().AddConsumer(
            RefCntPtr<Metrics::IMetricsListener>(this), Metrics::flagTracing, flag);
    }
}

void MetricsMonitor::Unregister() {
    if (OptTarn::GetIsTarnEnabled()) {
        m_records->openWork.Withdraw();
        Metrics::MetricsManager::GetInstance().RemoveConsumer(
            RefCntPtr<Metrics::IMetricsListener>(this));
    }
}

void MetricsMonitor::OnMetricsEvent(const Metrics::MetricsEvent& event) {
    OnLentEvent(Metrics::EventView::Of(event));
}

void MetricsMonitor::OnLentEvent(const Metrics::EventView& event) {
    // Scopes of the host that are marked in the low bits concern others.
    constexpr uint64 lowBits = 0xF;
    if ((event.flags & Metrics::flagTracing) == 0 && (event.flags & lowBits) != 0) {
        return;
    }
    switch (event.type) {
        case Metrics::MetricsEventType::CreateContext:
            return OnCreateContext(event);
        case Metrics::MetricsEventType::OpenContext:
            return OnOpenContext(event);
        case Metrics::MetricsEventType::CloseContext:
            return OnCloseContext(event);
        case Metrics::MetricsEventType::OpenScope:
            return OnOpenScope(event);
        case Metrics::MetricsEventType::CloseScope:
            return OnCloseScope(event);
        case Metrics::MetricsEventType::NameValue:
            return OnNameValue(event);
        case Metrics::MetricsEventType::Attribute:
            return OnAttribute(event);
        case Metrics::MetricsEventType::NameValuePairs:
            return OnNameValuePairs(event);
        case Metrics::MetricsEventType::AttributePairs:
            return OnAttributePairs(event);
        case Metrics::MetricsEventType::SupplementalPairs:
            return OnSupplementalPairs(event);
        case Metrics::MetricsEventType::PostCloseScope:
            return OnPostCloseScope(event);
    }
}

// What is logged on the way may concern others, who wait for the event that is just heard.
void MetricsMonitor::OnLentEnd(Metrics::EndEvents& events) {
    do {
        OnLentEvent(events.Take());
    } while (!events.AreOver() && !tarn::AreDumpsWanted());
}

void MetricsMonitor::EnableTest(IMetricsMonitorSink* sink, IMetricsMonitorUUID* uuidGenerator) {
    if (sink == nullptr) {
        tarn::RaiseLogicAssert(sourceFile, 303, "sink", 0x92C72FA5);
    }
    if (uuidGenerator == nullptr) {
        tarn::RaiseLogicAssert(sourceFile, 304, "uuidGenerator", 0xCFD85784);
    }
    m_records->testEnabled = true;
    m_records->sink.Replace(std::unique_ptr<IMetricsMonitorSink>(sink));
    if (m_records->uuidGenerator.get() != uuidGenerator) {
        m_records->uuidGenerator.reset(uuidGenerator);
    }
}

void MetricsMonitor::SetSink(std::unique_ptr<IMetricsMonitorSink> sink) {
    m_records->sink.Replace(sink != nullptr ? std::move(sink) : std::make_unique<LogSink>());
}

void MetricsMonitor::SetFinishedActivityListener(
    tarn::IFinishedActivityListener* listener) noexcept {
    m_records->finishedListener.store(listener, std::memory_order_release);
}

void MetricsMonitor::SetAdditionalFields(bool enabled) noexcept {
    m_records->hasAdditionalFields.store(enabled, std::memory_order_relaxed);
}

void MetricsMonitor::SetLimits(const Limits& limits) noexcept {
    m_records->attributesPerScope.Set(limits.attributesPerScope);
    m_records->nestedScopes.Set(limits.nestedScopes);
    m_records->pendingAttributes.Set(limits.pendingAttributes);
}

MetricsMonitor::Statistics MetricsMonitor::GetStatistics() const noexcept {
    return {m_records->attributesPerScope.GetLeftOut(),
            m_records->nestedScopes.GetLeftOut(),
            m_records->pendingAttributes.GetLeftOut()};
}

bool MetricsMonitor::IsEnabledForTest() const noexcept {
    return m_records->testEnabled;
}

uint64 MetricsMonitor::GetNumberOpenContexts() const noexcept {
    return m_records->contexts.Size();
}

uint64 MetricsMonitor::GetNumberOpenScopes() const noexcept {
    return m_records->scopes.Size();
}

uint64 MetricsMonitor::GetNumberOpenScopesForContext(const uint64& contextId) const {
    const ContextInfo* const context = std::as_const(*m_records).FindContext(contextId);
    return context != nullptr ? context->openScopes.Size() : 0;
}

void MetricsMonitor::OverrideMemoryTrackingModeForTest(
    corvala::memory::MemoryTrackingMode mode) const {
    tarn::OverrideLoggedMemoryTrackingModeForTest(mode);
}
