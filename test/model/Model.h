#pragma once

#include "FoldingRules.h"
#include "ModelValue.h"
#include "Observation.h"
#include "StreamOptions.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

using Id = std::array<unsigned char, 16>;

/// 8-4-4-4-12, upper case.
std::u16string TextOf(const Id& id);

/// The ids that a stream's id generator gives out, first to last. The library's run installs a
/// generator that walks the same sequence.
Id IdAt(uint64 index, bool repeating);

struct TimeInfo {
    int64 time = 0;
    uint64 wallSeconds = 0;
    uint32 wallMicros = 0;

    int64 Microseconds() const;
};

using Attributes = std::map<std::u16string, Value>;

struct Supplement {
    int64 microseconds = 0;
    Pairs pairs;
};

struct ScopeState : folding::Account {
    std::u16string requestText = u"-";
    std::u16string ownText = u"-";
    std::u16string rootText = u"-";
    uint64 scopeId = 0;
    std::u16string name;
    Id activityId{};
    uint64 contextId = 0;
    Attributes attributes;
    std::vector<Supplement> supplements;
    Id requestActivityId{};
    std::vector<uint64> sponsorChain;
    int32 traceDepth = 0;
    int32 serviceDepth = 0;
    TimeInfo openTime;
    std::u16string result = u"ok";
    std::vector<std::pair<std::u16string, std::u16string>> resultPairs;
    bool tracing = false;
    int64 sponseeErrors = 0;
    int64 sponseeEarlyTerminations = 0;
    int64 allocatedPeak = 0;
};

/// What a dump of a state holds beside its head; any other value: nothing.
enum class DumpType : int32 { Full = 0, Memory = 1, Cpu = 2 };

/// The body of the diagnostic event that shows a state.
Node DumpOf(const ScopeState& state, const std::u16string& reason, DumpType type);

struct ContextInfo {
    uint64 parentId = 0;
    std::shared_ptr<Attributes> request;
    std::vector<uint64> openScopes;
    std::vector<uint64> openTracingScopes;
    Pairs pendingAttributes;
    Pairs ownAttributes;
    std::shared_ptr<std::vector<Attributes>> layers;
    ScopeState baseState;
    bool isOpen = false;
};

/// What a metrics monitor has to do, told as plainly as possible: every handler rebuilds, copies
/// and searches as it likes. It shares nothing with the library but the records of the bus.
///
/// One model is given the same calls as one monitor. One thread at a time.
class Model {
public:
    /// `rootContextId` goes to the monitor's constructor; `contextIds` are those whose counts are
    /// looked at after each call.
    Model(const ProcessFacts& process,
          const StreamOptions& options,
          uint64 rootContextId,
          std::vector<uint64> contextIds,
          bool throughDefaultSink,
          bool repeatingIds);

    /// The monitor's construction.
    Observation Construct();

    void SetOptions(const StreamOptions& options);

    /// One event; with `sinkThrows` every call of the sink ends in an exception.
    Observation Handle(const Metrics::MetricsEvent& event, bool sinkThrows);

    /// The monitor's destruction.
    Observation Destroy();

private:
    enum class Phase { Begin, End };

    Observation Observe(const std::function<void()>& call);

    // What the host sees.
    void Count(Counter counter);
    void Message(int32 severity, std::u16string text);
    void Sink(const LogEvent& event);

    // Contexts.
    void OnCreateContext(uint64 contextId, uint64 parentId);
    void OnOpenContext(uint64 contextId);
    void OnCloseContext(uint64 contextId);
    ContextInfo* FindContext(uint64 contextId);
    std::shared_ptr<Attributes> NewRequest();
    void SetRequest(ContextInfo& context, std::shared_ptr<Attributes> request);
    void AddAttributesToRequest(ContextInfo& context, const Pairs& pairs);
    ScopeState InnermostState(const ContextInfo& context);

    // Scopes.
    ScopeState* FindScope(uint64 scopeId);
    bool IsRequestScope(const Metrics::MetricsEvent& event) const;
    void OnOpenScope(const Metrics::MetricsEvent& event);
    ScopeState BuildState(const ScopeState& parent,
                          const Metrics::MetricsEvent& event,
                          ContextInfo& context,
                          bool request,
                          bool tracing,
                          bool startsRequest);
    void RouteOpeningPair(ScopeState& state, const Pair& pair);
    void OnCloseScope(const Metrics::MetricsEvent& event);
    void CloseTopmost(ContextInfo& context, const Metrics::MetricsEvent& event);
    void OnPostCloseScope(const Metrics::MetricsEvent& event);
    uint64 FindOpenSponsor(const ScopeState& state, bool anySponsor);
    bool IsSilent(const ScopeState& state) const;

    // Attributes.
    void AddAttributeToActivity(ScopeState& state, std::u16string name, const Value& value);
    void OnNameValue(const Metrics::MetricsEvent& event);
    void OnNameValuePairs(const Metrics::MetricsEvent& event);
    void OnSupplementalPairs(const Metrics::MetricsEvent& event);
    void OnAttribute(const Metrics::MetricsEvent& event);
    void OnAttributePairs(uint64 contextId, const std::u16string& listName, const Pairs& pairs);
    void PassAttributesToParent(const ScopeState& state);

    // Figures.
    void AddFigures(ScopeState& state, const Pairs& pairs, DumpType type);
    void AddEndFigures(ScopeState& state, const TimeInfo& end);
    void Fold(const ScopeState& child, ScopeState& parent);
    void PassResult(const ScopeState& child, ScopeState& parent);
    void Dump(const ScopeState& state, const std::u16string& reason, DumpType type);

    // Log events.
    LogEvent BuildEvent(ScopeState& state, Phase phase, const TimeInfo& time);
    Node BuildResources(const ScopeState& state) const;

    ProcessFacts m_process;
    StreamOptions m_options;
    std::map<std::u16string, std::u16string> m_mappings;
    uint64 m_rootContextId;
    std::vector<uint64> m_contextIds;
    bool m_throughDefaultSink;
    bool m_repeatingIds;
    bool m_sinkThrows = false;
    bool m_hasWarnedOfOpening = false;
    bool m_hasCallbackThrown = false;
    uint64 m_idsTaken = 0;
    std::map<uint64, ContextInfo> m_contexts;
    std::map<uint64, ScopeState> m_scopes;
    Counters m_counters{};
    std::vector<Entry> m_journal;
};

}  // namespace model
