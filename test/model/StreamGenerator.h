#pragma once

#include "StreamOptions.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <optional>
#include <string>
#include <vector>

namespace model {

/// What a stream dwells on. Every family contains valid and invalid events of every type.
enum class Family {
    Plain,           ///< valid nestings for the most part, ids made by the monitor
    Disorder,        ///< closes out of order, unknown and doubled ids, odd contexts
    Foreground,      ///< contexts carried by the scopes themselves
    Server,          ///< request attributes, sites, missing sponsors
    Transparent,     ///< transparent scopes, logged and not
    Figures,         ///< resource figures and their dumps, under the test overrides
    ProcessFigures,  ///< resource figures with the process's own tracking
    WrongKinds,      ///< unknown kinds, numbers as names, sinks that throw
    Everything,      ///< all options at random, changed while the stream runs
};

inline constexpr int numberOfFamilies = 9;

/// The options in effect from this event on, if they change; then the event.
struct Step {
    std::optional<StreamOptions> options;
    bool sinkThrows = false;
    Metrics::MetricsEvent event;
};

struct Stream {
    Family family = Family::Plain;
    uint64 seed = 0;
    uint64 number = 0;
    uint64 rootContextId = 0;
    bool throughDefaultSink = false;
    bool repeatingIds = false;
    StreamOptions options;
    std::vector<uint64> contextIds;  ///< all that occur
    std::vector<Step> steps;
};

/// The same arguments give the same stream, on every machine.
Stream GenerateStream(Family family, uint64 seed, uint64 number);

/// For failure messages.
std::string Print(const Metrics::MetricsValue& value);
std::string Print(const Metrics::MetricsEvent& event);
std::string Print(const StreamOptions& options);

}  // namespace model
