#pragma once

#include "Comparison.h"
#include "Observation.h"
#include "StreamGenerator.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace model {

/// Where model and library parted. Steps count from 0; the monitor's construction is -1, its
/// destruction comes one after the last step.
struct Parting {
    int64 step = -1;
    Difference difference;
};

/// What was seen on the way, to show that a run has met what it is meant for.
struct Sightings {
    uint64 events = 0;
    uint64 beginEvents = 0;
    uint64 endEvents = 0;
    uint64 generatedRequestIds = 0;
    uint64 dumps = 0;
    uint64 warnings = 0;
    uint64 missingSponsors = 0;
    uint64 conversionErrors = 0;
    uint64 textFieldErrors = 0;
    uint64 figureNameErrors = 0;
    uint64 sinkErrors = 0;
    uint64 manyAttributes = 0;  ///< events that hold more than 16
    uint64 negativeDepths = 0;  ///< events
    uint64 replacedTexts = 0;   ///< events with a name or value that was no text
    uint64 processorTimes = 0;  ///< end events
    uint64 releasedMemory = 0;  ///< end events
    uint64 staticTexts = 0;     ///< events that are fed with one or more
    uint64 callbackErrors = 0;  ///< first ones after the callback was set

    /// An event, and what came of it.
    void Add(const Metrics::MetricsEvent& event, const Observation& observation);

private:
    void Add(LogEvent event);
};

/// Changes that a test of the checker makes on the library's side.
struct Tampering {
    std::function<void(std::size_t step, Metrics::MetricsEvent& event)> event;
    std::function<void(std::size_t step, Observation& observation)> observation;
};

/// Feeds one stream to a fresh monitor and a fresh model and compares after every event. Stops at
/// the first difference.
std::optional<Parting> RunStream(const Stream& stream,
                                 Sightings* sightings = nullptr,
                                 const Tampering& tampering = {});

/// The stream without the events that are not needed for its model and library to part.
Stream Shrink(Stream stream, const Tampering& tampering = {});

/// Seed, stream, event, field and both sides, how to replay it, and the shrunken stream.
std::string Describe(const Stream& stream, const Parting& parting, const Tampering& tampering = {});

}  // namespace model
