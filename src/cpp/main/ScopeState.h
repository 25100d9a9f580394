#pragma once

#include "ActivityTokenText.h"
#include "ResourceFigures.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarn {

/// What a dump of a scope's state holds beside its head. Any other value gives the head alone.
enum class ScopeStateDumpType : int32 {
    Full = 0,
    Memory = 1,
    Cpu = 2,
};

}  // namespace tarn

/// When an event happened.
struct MetricsMonitor::MetricsTimeInfo {
    int64 time = 0;  ///< nanoseconds of the bus's own clock
    uint64 wallSeconds = 0;
    uint32 wallMicros = 0;

    static MetricsTimeInfo Of(const Metrics::MetricsEvent& event) noexcept {
        return {event.time, event.wallSeconds, event.wallMicros};
    }

    uint64 WallMicroseconds() const noexcept { return wallSeconds * 1'000'000 + wallMicros; }
};

/// What the monitor knows of one open scope. A context has one, too, which its first scope
/// inherits from.
struct MetricsMonitor::ScopeState {
    using DumpType = tarn::ScopeStateDumpType;
    using Attributes = std::unordered_map<TString, Metrics::MetricsValue>;

    struct Supplement {
        uint64 timeInMicroseconds = 0;
        Metrics::NameValueList pairs;
    };

    /// What a scope takes from the scope that it opens in. Figures, result and threads are its
    /// own from the start.
    static ScopeState InheritingFrom(const ScopeState& parent) {
        ScopeState state;
        state.requestText = parent.requestText;
        state.threadId = parent.threadId;
        state.requestActivityId = parent.requestActivityId;
        state.sponsorChain = parent.sponsorChain;
        state.traceDepth = parent.traceDepth;
        state.serviceDepth = parent.serviceDepth;
        return state;
    }

    // Identity.
    TString requestText = TarnMetricsUtils::DefaultStringAttributeValue();
    TString ownIdText = TarnMetricsUtils::DefaultStringAttributeValue();
    TString rootIdText = TarnMetricsUtils::DefaultStringAttributeValue();
    uint64 scopeId = 0;
    TString name;
    TUUID activityId;
    uint64 contextId = 0;
    uint64 threadId = 0;
    TUUID requestActivityId;
    std::vector<uint64> sponsorChain;  ///< the nearest sponsor stands last
    int32 traceDepth = 0;
    int32 serviceDepth = 0;

    // Decided at open.
    bool tracing = false;
    bool transparent = false;
    bool untrackedOrRequest = false;  ///< measures nothing itself
    MetricsTimeInfo openTime;

    // Gathered for the next log event.
    Attributes attributes;
    std::vector<Supplement> supplements;

    // The outcome.
    TString result = tarn::Tokens().resultOk;
    std::vector<std::pair<TString, TString>> resultPairs;
    int64 sponseeErrors = 0;
    int64 sponseeEarlyTerminations = 0;

    // Figures.
    std::set<uint64> threadIds;
    double elapsed = 0;       ///< seconds
    double childrenTime = 0;  ///< seconds of children on the same thread
    double exclusive = 0;     ///< seconds
    tarn::ResourceFigures resources;
};

/// A scope and the time of the event that is logged about it. Building the event may give the
/// scope the request text of its sponsor.
struct MetricsMonitor::ScopeStateWithEventTimeInfo {
    ScopeState& state;
    MetricsTimeInfo time;
};
