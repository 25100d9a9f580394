#pragma once

#include "model/ActivityForest.h"

#include <cstddef>
#include <iosfwd>
#include <string>

namespace tarnview {

/// The JSON of trace viewers: times in microseconds from the earliest begin on; what nests on its
/// thread as complete events, what does not as asynchronous ones; an arrow where work was handed
/// to another thread or process.
void ExportChrome(const ActivityForest& forest, std::ostream& out);

/// Perfetto's own form, a sequence of protocol buffers: times of day in nanoseconds, a track for
/// each thread, further ones for what crosses other work of its thread, flows where work was handed
/// to another thread or process.
void ExportPerfetto(const ActivityForest& forest, std::ostream& out);

/// Flame graphs for speedscope: for each thread a profile of begins and ends in nanoseconds, and
/// for each process one of the bytes that each stack allocated.
void ExportSpeedscope(const ActivityForest& forest, std::ostream& out);

/// OpenTelemetry's JSON, one export request a line, of a few hundred spans of one process each.
/// `service` names all processes; if it is empty, each has the name of its site. What never ended
/// goes on until the log ends, and has failed.
void ExportOtlp(const ActivityForest& forest, const std::string& service, std::ostream& out);

/// Stacks are no deeper than this: each is written whole, so that depth would count twice. What
/// lies deeper belongs to the last that is in.
inline constexpr std::size_t deepestStack = 1000;

/// A profile of pprof, compressed with gzip: for each stack of names how many activities there
/// were, the time in which none of their children ran, exclusive processor time and exclusive
/// memory. Throws `std::runtime_error` if it cannot be compressed.
void ExportPprof(const ActivityForest& forest, std::ostream& out);

enum class FoldedWeight { Time, Cpu, Memory };

/// A line for each stack of names: "serve;query;read 1234". The weight is the exclusive one, in
/// microseconds or bytes; for time that in which none of the children ran, on any thread, so that
/// waiting does not count on top of what is waited for. Stacks without any are left out.
void ExportFolded(const ActivityForest& forest, FoldedWeight weight, std::ostream& out);

}  // namespace tarnview
