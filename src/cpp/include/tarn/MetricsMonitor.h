#pragma once

#include "tarn/ActivitySchema.h"
#include "tarn/Export.h"
#include "tarn/IFinishedActivityListener.h"
#include "tarn/IMetricsMonitorSink.h"
#include "tarn/IMetricsMonitorUUID.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/MemoryTracking.h"

#include <memory>
#include <utility>

namespace tarn {
enum class ScopeStateDumpType : int32;
struct MonitorName;
}  // namespace tarn

/// Turns the stream of metrics events into activity log events: it rebuilds contexts and the tree
/// of open scopes, and hands a begin and an end event for each traced scope to its sink. A
/// process has one, for its root metrics context:
///
///     RefCntPtr<MetricsMonitor> monitor(new MetricsMonitor(rootContextId));
///     monitor->Register(true);
///
/// It is held by counted references only; the bus holds one while it is registered, so unregister
/// it before the last reference goes. It takes no lock: the bus never delivers two events to it
/// at once. Counting queries and test hooks are for moments when nothing is delivered.
class TARN_EXPORT MetricsMonitor : public Metrics::IMetricsListener, public Metrics::ILentListener {
public:
    struct ScopeState;
    struct ScopeStateWithEventTimeInfo;
    struct ContextInfo;
    struct MetricsTimeInfo;

    /// The sink that a monitor starts with: the host's logger, at Info severity.
    class TARN_EXPORT LogSink : public IMetricsMonitorSink {
    public:
        ~LogSink() override;
        void Log(const TLog::Event& event) override;
    };

    /// `contextId` is the host's root context. While tracing is disabled the monitor knows no
    /// context; set the option first.
    explicit MetricsMonitor(uint64 contextId);

    /// Drops what is still open, without events. Does not unregister.
    ~MetricsMonitor() override;

    /// Subscribes to the bus if tracing is enabled. With `flag` scopes of the host itself, which
    /// carry no tracing bit, are received too.
    void Register(bool flag);

    /// Ends the subscription if tracing is enabled.
    void Unregister();

    /// Called by the bus. Events for contexts and scopes that it does not know are ignored; an
    /// exception from the sink or from building a log event passes through, the records stay
    /// consistent.
    void OnMetricsEvent(const Metrics::MetricsEvent& event) override;

    /// The same, by a bus that lends.
    void OnLentEvent(const Metrics::EventView& event) override;
    void OnLentEnd(Metrics::EndEvents& events) override;

    /// The sink that all further log events go to, instead of the former one; without an argument
    /// the one that a monitor starts with. Any thread may call it at any time. When it returns, the
    /// former sink is not called any more and has been destroyed: the call waits for the event that
    /// the former sink may be at. Called from inside the former sink's own `Log`, it takes effect
    /// when that returns. Throws `std::bad_alloc`, and then changes nothing.
    void SetSink(std::unique_ptr<IMetricsMonitorSink> sink);

    /// Notifies `listener` of each activity that ends from now on; null: nobody. Not owned: it must
    /// live as long as the monitor, or for ever if it may be replaced while others trace. Any
    /// thread may call this at any time.
    void SetFinishedActivityListener(tarn::IFinishedActivityListener* listener) noexcept;

    /// With `enabled`, each log event also carries, in its activity table,
    /// - `caller`: the id of the activity that started this one, even if that has ended; missing
    ///   where nobody did;
    /// - `seq`: the events of a process numbered 1, 2, 3 and so on, over all monitors. What is
    ///   missing later, in a log that was cut or a sink that failed, shows as a gap.
    /// Off at first. Any thread may call it at any time; it holds for what is built from then on.
    void SetAdditionalFields(bool enabled) noexcept;

    /// Defaults for each request: attributes, by their tokens ("user", "site", "sid"), and with
    /// `assignIds` an id, which all of its lines carry. Only the first call for a monitor has an
    /// effect; requests that have begun stay as they are. One thread at a time, also while others
    /// trace.
    void SetRequestDefaults(Metrics::NameValueList attributes, bool assignIds);

    /// Limits on what the monitor keeps, so that a mistake in the host does not take all memory.
    /// What exceeds them is left out and counted; the log reports the first case.
    struct Limits {
        uint64 attributesPerScope = 1'000'000;  ///< distinct names in one log event
        uint64 nestedScopes = 1'000'000;        ///< open within each other in one context
        uint64 pendingAttributes = 10'000;      ///< of one context, until a request takes them
    };

    /// Any thread may call it at any time; what the monitor already has stays.
    void SetLimits(const Limits& limits) noexcept;

    struct Statistics {
        uint64 attributesLeftOut = 0;
        uint64 scopesLeftOut = 0;
        uint64 pendingAttributesLeftOut = 0;
    };

    /// Since the monitor was made. Any thread may ask.
    Statistics GetStatistics() const noexcept;

    /// Replaces the sink, as `SetSink` does, and the id generator, and owns both from then on. A
    /// null argument raises `LogicException` and nothing is taken over. For moments when nothing is
    /// delivered.
    void EnableTest(IMetricsMonitorSink* sink, IMetricsMonitorUUID* uuidGenerator);

    bool IsEnabledForTest() const noexcept;

    uint64 GetNumberOpenContexts() const noexcept;
    uint64 GetNumberOpenScopes() const noexcept;

    /// 0 for a context that the monitor does not know.
    uint64 GetNumberOpenScopesForContext(const uint64& contextId) const;

    /// The memory tracking mode that log events go by while the option IsUnitTest is on.
    void OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingMode mode) const;

private:
    struct Records;

    // Contexts.
    void OnCreateContext(const Metrics::EventView& event);
    void OnOpenContext(const Metrics::EventView& event);
    void OnCloseContext(const Metrics::EventView& event);
    bool ContextExists(uint64 contextId) const;
    bool ContextExistsAndIsOpen(uint64 contextId) const;
    bool IsRequestScope(const Metrics::EventView& event) const;
    void StartRequest(ContextInfo& context);
    void AddAttributesToRequestContext(ContextInfo& context, const Metrics::NameValueList& pairs);
    void AddPendingContextAttributesToContext(ScopeState& scope,
                                              ContextInfo& context,
                                              uint64 scopeId);
    static bool IsReplaceableRequestDescription(const TString& current,
                                                const Metrics::MetricsValue& incoming);
    const ScopeState& InnermostState(ContextInfo& context);

    // Scopes.
    void OnOpenScope(const Metrics::EventView& event);
    void OnCloseScope(const Metrics::EventView& event);
    void OnPostCloseScope(const Metrics::EventView& event);
    bool ShouldOpenScope(uint64 contextId, bool tracing) const;
    std::pair<bool, bool> ShouldCloseScope(uint64 contextId, uint64 scopeId) const;
    bool ScopeIsOpen(uint64 scopeId) const;
    bool ScopeIsOpenTopMostInContext(uint64 contextId, uint64 scopeId) const;
    uint64 FindOpenSponsor(const ScopeState& state, bool anySponsor) const;
    void FillTracingState(ScopeState& state,
                          const ScopeState& parent,
                          const Metrics::EventView& event,
                          ContextInfo& context,
                          bool request,
                          bool startsRequest);
    void KeepOpeningAttributes(ScopeState& state) const;
    void LogBegin(ScopeState& state);
    void LogEnd(ScopeState& state, const Metrics::EventView& event);
    static void NotifyFinished(const ScopeState& state,
                               const MetricsTimeInfo& end,
                               tarn::IFinishedActivityListener& listener);

    // Attributes.
    void OnNameValue(const Metrics::EventView& event);
    void OnNameValuePairs(const Metrics::EventView& event);
    void OnSupplementalPairs(const Metrics::EventView& event);
    void OnAttribute(const Metrics::EventView& event);
    void OnAttributePairs(const Metrics::EventView& event);
    void HandleMappableContextAttributes(ContextInfo& context, const Metrics::NameValueList& pairs);
    static void AddContextAttributeLayer(ContextInfo& context, const Metrics::NameValueList& pairs);
    template <class Collected>
    [[gnu::visibility("hidden")]] void AddAttribute(ScopeState& state,
                                                    const tarn::MonitorName& name,
                                                    const Metrics::ValueView& value,
                                                    Collected& attributes);
    void AddOpeningAttribute(ScopeState& state,
                             const tarn::MonitorName& name,
                             const Metrics::ValueView& value);
    void OnResultAttrs(ScopeState& state, Metrics::PairSpan pairs);
    void AddContextAttributesToScope(ScopeState& state, ContextInfo& context, uint64 scopeId);
    void AddSpecificContextAttributesToParent(ScopeState& state);
    void RouteOpeningPairs(ScopeState& state, const ScopeState& parent, Metrics::PairSpan pairs);

    // End figures and log events.
    void AddEndActivitySpecificNameValues(ScopeState& state,
                                          uint64 scopeId,
                                          const MetricsTimeInfo& end);
    void OnMemoryCpuValuePairs(ScopeState& state,
                               Metrics::PairSpan pairs,
                               tarn::ScopeStateDumpType dumpType);
    static void FoldIntoParent(const ScopeState& child, ScopeState& parent);
    TLog::Event CreateBeginLogEvent(const ScopeStateWithEventTimeInfo& scope) const;
    TLog::Event CreateEndLogEvent(const ScopeStateWithEventTimeInfo& scope) const;
    TLog::Event CreateLogEvent(const ScopeStateWithEventTimeInfo& scope, ActivityPhase phase) const;

    std::unique_ptr<Records> m_records;
};
