#pragma once

#include "ActivityEventInput.h"

#include "tarn/ActivitySchema.h"

#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// What decides which fields an event has, beside the attributes that the host names: a bit for
/// each fact, and behind them one for each attribute that the request has.
using EventFacts = uint64;

namespace fact {

constexpr EventFacts begin = 1U << 0;
constexpr EventFacts end = 1U << 1;
constexpr EventFacts hasBody = 1U << 2;  ///< one of both: it says more than which scope it is about
constexpr EventFacts topOfTrace = 1U << 3;
constexpr EventFacts isRoot = 1U << 4;           ///< of its trace, or above all depths
constexpr EventFacts sponsoredByRoot = 1U << 5;  ///< one below
constexpr EventFacts foreground = 1U << 6;
constexpr EventFacts server = 1U << 7;
constexpr EventFacts environment = 1U << 8;
constexpr EventFacts otherSponsor = 1U << 9;  ///< than the scope; not with foreground contexts
constexpr EventFacts otherRoot = 1U << 10;    ///< likewise
constexpr EventFacts lineNumber = 1U << 11;   ///< the additional fields are asked for
constexpr EventFacts caller = 1U << 12;       ///< and there is one to name
constexpr EventFacts knownRequest = 1U << 13;
constexpr EventFacts namedRequest = 1U << 14;  ///< only by the scope's context
constexpr EventFacts sponseeErrors = 1U << 15;
constexpr EventFacts sponseeEarlyTerminations = 1U << 16;
constexpr EventFacts resources = 1U << 17;
constexpr EventFacts allMemory = 1U << 18;
constexpr EventFacts processorTime = 1U << 19;
constexpr EventFacts supplements = 1U << 20;

/// The request has an attribute of this name.
constexpr EventFacts Attribute(ContextAttributeName name) {
    return uint64{RequestContextAttributes::Table::BitOf(name)} << 32;
}

}  // namespace fact

EventFacts FindFacts(ActivityPhase phase, const ActivityEventInput& input);

}  // namespace tarn
