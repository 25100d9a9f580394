#pragma once

#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnview {

/// One activity: its begin and its end line together. A value.
struct Activity {
    std::string id;
    std::string name;
    std::string sponsor;  ///< empty at the top of a tree
    std::string root;     ///< at the top of a tree the id
    std::string caller;   ///< who started it; empty if the log does not say
    std::int64_t depth = 0;
    ProcessId process{};
    std::int64_t beginThread = 0;
    std::int64_t endThread = 0;
    std::string session;
    std::string request;
    std::string user;
    std::string site;
    std::string description;

    bool hasBegin = false;
    bool hasEnd = false;
    bool isForked = false;            ///< begun by the parent of the process, which may end it, too
    bool hasSeveralRequests = false;  ///< its begin and its end line name different ones
    Microseconds begin = 0;           ///< without a begin line: computed from the end line
    Microseconds end = 0;             ///< without an end line: `begin`
    Place beginPlace;
    Place endPlace;

    double elapsed = 0;    ///< seconds, as the log says
    double exclusive = 0;  ///< seconds, as the log says
    // Of the children that ended while this one ran, on the thread that it began on.
    Microseconds childrenTime = 0;        ///< the sum of their Duration()
    Microseconds childrenLoggedTime = 0;  ///< the sum of what the log says
    std::string result;                   ///< empty if it has not ended
    std::int64_t failedChildren = 0;
    std::int64_t terminatedChildren = 0;
    Figures figures;

    // JSON texts, only if the parser was asked for tables.
    std::string environment;
    std::string resultDetails;
    std::string attributes;
    std::string beginBody;
    std::string endBody;

    /// "-" stands for no sponsor as well.
    bool HasSponsor() const { return !sponsor.empty() && sponsor != "-"; }

    /// The line to name when something is wrong with it.
    const Place& FirstPlace() const { return hasBegin ? beginPlace : endPlace; }

    bool IsFailure() const { return hasEnd && result != "ok" && result != "early-termination"; }

    bool IsEarlyTermination() const { return hasEnd && result == "early-termination"; }

    /// `elapsed` and `exclusive` in microseconds, as coarse as the log has them.
    Microseconds LoggedDuration() const;
    Microseconds LoggedExclusiveTime() const;

    /// From begin to end: by the times of the two lines, which are finer than `elapsed`, if they
    /// agree with it; else `elapsed`. Clocks that are set make them disagree. 0 if it never ended.
    Microseconds Duration() const;

    /// Its duration less `childrenTime`, if the log's own figures say the same of the same
    /// children; else `exclusive`. Lines that are missing, and children that the log does not show,
    /// make them disagree. 0 if it never ended.
    Microseconds ExclusiveTime() const;
};

/// Takes from a begin line all that it says, or from an end line what the begin line did not say.
void ReadBegin(const LogLine& line, const Place& place, Activity& activity);
void ReadEnd(const LogLine& line, const Place& place, Activity& activity);

}  // namespace tarnview
