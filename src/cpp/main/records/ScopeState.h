#pragma once

#include "ActivityTokenText.h"
#include "FlatTable.h"
#include "ResourceFigures.h"
#include "SponsorChain.h"
#include "ThreadIds.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

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

    static MetricsTimeInfo Of(const Metrics::EventView& event) noexcept {
        return {event.time, event.wallSeconds, event.wallMicros};
    }

    uint64 WallMicroseconds() const noexcept { return wallSeconds * 1'000'000 + wallMicros; }
};

/// What the monitor knows of one open scope. A context has one, too, which its first scope
/// inherits from.
// The class that it belongs to is exported with all its members.
struct __attribute__((visibility("hidden"))) MetricsMonitor::ScopeState {
    using DumpType = tarn::ScopeStateDumpType;
    using Attributes = tarn::FlatTable<Metrics::MetricsValue>;

    struct Supplement {
        uint64 timeInMicroseconds = 0;
        Metrics::NameValueList pairs;
    };

    /// Resets to the state of a scope that opens under `parent`, the innermost open one. Inherits
    /// its request, sponsors and depths; reuses the memory that the state has.
    void ResetUnder(const ScopeState& parent);

    /// Drops what the scope has collected, and more memory than an ordinary scope needs.
    void ReleaseMemory() noexcept;

    // Identity.
    TString requestText = tarn::NoText();
    TString ownIdText = tarn::NoText();
    TString rootIdText = tarn::NoText();
    uint64 scopeId = 0;
    TString name;
    TUUID activityId;
    uint64 contextId = 0;
    uint64 threadId = 0;
    TUUID requestActivityId;
    /// Who opened the scope, or is the nearest to that who is logged; as an id, and with foreground
    /// thread contexts as a text. Empty if there is nobody.
    TUUID callerId;
    TString callerText;
    tarn::SponsorChain sponsorChain;
    int32 traceDepth = 0;
    int32 serviceDepth = 0;

    // Decided at open.
    bool tracing = false;
    bool transparent = false;
    bool untrackedOrRequest = false;  ///< measures nothing itself
    MetricsTimeInfo openTime;

    // Collected for the next log event.
    Attributes attributes;
    std::vector<Supplement> supplements;

    // The outcome.
    TString result = tarn::Tokens().resultOk;
    std::vector<std::pair<TString, TString>> resultPairs;
    int64 sponseeErrors = 0;
    int64 sponseeEarlyTerminations = 0;

    // Figures.
    tarn::ThreadIds threadIds;
    double elapsed = 0;       ///< seconds
    double childrenTime = 0;  ///< seconds of children on the same thread
    double exclusive = 0;     ///< seconds
    tarn::ResourceFigures resources;
};

inline void MetricsMonitor::ScopeState::ResetUnder(const ScopeState& parent) {
    const TString& none = tarn::NoText();
    requestText = parent.requestText;
    ownIdText = none;
    rootIdText = none;
    scopeId = 0;
    name = TString();
    activityId = TUUID();
    contextId = 0;
    threadId = parent.threadId;
    requestActivityId = parent.requestActivityId;
    callerId = TUUID();
    callerText = TString();
    sponsorChain = parent.sponsorChain;
    traceDepth = parent.traceDepth;
    serviceDepth = parent.serviceDepth;
    tracing = false;
    transparent = false;
    untrackedOrRequest = false;
    openTime = {};
    attributes.Clear();
    supplements.clear();
    result = tarn::Tokens().resultOk;
    resultPairs.clear();
    sponseeErrors = 0;
    sponseeEarlyTerminations = 0;
    threadIds.Clear();
    elapsed = 0;
    childrenTime = 0;
    exclusive = 0;
    resources = {};
}

inline void MetricsMonitor::ScopeState::ReleaseMemory() noexcept {
    attributes.Release();
    supplements = {};
    resultPairs = {};
    threadIds.Release();
    sponsorChain = {};
}

/// Whether the scope passes through the log without a word.
inline bool IsSilent(const MetricsMonitor::ScopeState& state) {
    return state.transparent && !OptTarn::GetShouldLogTransparent();
}

/// A scope and the time of the event that is logged about it. Building the event may give the
/// scope the request text of its sponsor.
struct MetricsMonitor::ScopeStateWithEventTimeInfo {
    ScopeState& state;
    MetricsTimeInfo time;
};
