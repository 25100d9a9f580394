#pragma once

#include "read/ProcessId.h"
#include "read/Timestamp.h"

#include <cstdint>
#include <string_view>

namespace tarnview {

enum class LineKind {
    Begin,
    End,
    Diagnostic,  ///< an event that is of no activity
    Message,
};

/// The resource figures of an end event, under the names that they have in the log. A host measures
/// all of them, some or none; what it did not measure is 0 here and says nothing.
struct Figures {
    bool hasAllocated = false;  ///< `ai`, `ae`, `ani`, `ane`
    bool hasPeak = false;       ///< `apeak`
    bool hasReleased = false;   ///< `di`, `de`, `dni`, `dne`
    bool hasCpu = false;        ///< `ki`, `ke`, `ui`, `ue`
    bool hasThreads = false;    ///< `ntid`
    double ai = 0, ae = 0, apeak = 0, ani = 0, ane = 0;
    double di = 0, de = 0, dni = 0, dne = 0;
    double ki = 0, ke = 0, ui = 0, ue = 0;
    double threads = 0;

    double CpuInclusive() const { return ki + ui; }

    double CpuExclusive() const { return ke + ue; }
};

/// One line of the log. The texts point into the line reader and the parser, and are valid until
/// the next line is read. What a line does not hold is empty, 0 or false.
struct LogLine {
    LineKind kind = LineKind::Message;
    Microseconds time = 0;
    std::string_view severity;
    std::string_view event;
    std::string_view message;
    ProcessId process{};
    std::int64_t thread = 0;
    std::string_view session;
    std::string_view request;
    std::string_view user;
    std::string_view site;

    std::string_view id;
    std::string_view name;
    std::string_view sponsor;
    std::string_view caller;  ///< who started it, if the log says so
    std::int64_t number = 0;  ///< of the line within its process, from 1 on, if the log says so
    std::string_view root;    ///< at the top of a tree, where the line names none: the id
    std::int64_t depth = 0;
    std::string_view description;
    double elapsed = 0;    ///< seconds
    double exclusive = 0;  ///< seconds
    std::string_view result;
    std::int64_t failedChildren = 0;
    std::int64_t terminatedChildren = 0;
    Figures figures;

    // JSON texts of tables, only if they were asked for. They are not known to be valid.
    std::string_view environment;
    std::string_view resultDetails;
    std::string_view attributes;
    std::string_view body;

    bool IsOfActivity() const { return kind == LineKind::Begin || kind == LineKind::End; }
};

}  // namespace tarnview
