#pragma once

#include "Duel.h"
#include "StreamGenerator.h"

#include <optional>

namespace model {

/// Performs a stream on the bus: its contexts and scopes are real ones, with the ids and times that
/// the bus gives them, and a registered monitor hears of them. A second consumer hears the same
/// events; it compares each with what was emitted, and what the monitor has done with what a model
/// that is given this event does. Stops at the first difference. What no operation of the bus can
/// emit, such as the end of a scope that was not opened, is left out.
std::optional<Parting> RunStreamOnTheBus(const Stream& stream,
                                         Sightings* sightings = nullptr,
                                         const Tampering& tampering = {});

}  // namespace model
