#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace packagesearch {

/// What an activity used, as its end line tells it. Exclusive figures are its own alone.
struct LoggedFigures {
    std::int64_t allocated = 0;  ///< bytes, with its parts
    std::int64_t allocatedExclusive = 0;
    std::int64_t allocatedPeak = 0;  ///< bytes that were in use at once
    std::int64_t cpu = 0;            ///< microseconds in kernel and program, with its parts
    std::int64_t cpuExclusive = 0;
};

/// One activity as the log tells it: what its two lines say.
struct LoggedActivity {
    std::string id;
    std::string sponsor;  ///< id of the activity that this one is part of; empty for a root
    std::string root;     ///< id of the whole tree's first activity; its own for a root
    std::int64_t depth = 0;
    std::string name;
    std::string begin;        ///< time of the begin line; sorts as text
    std::string end;          ///< time of the end line; empty while it has none
    std::string description;  ///< of the request; roots only
    std::string request;
    std::string user;
    std::string site;
    std::string session;
    std::uint64_t processId = 0;
    std::uint64_t threadId = 0;
    double elapsed = 0;    ///< seconds
    double exclusive = 0;  ///< seconds, without the activities that it waited for on its own thread
    std::string result;    ///< "ok", or how it failed; empty while it has no end line
    std::string resultDetails;             ///< "name=value" of what more is said about the result
    std::vector<std::string> supplements;  ///< one for each, "name=value" with blanks between
    LoggedFigures figures;
    bool callsPeer = false;             ///< it waited for another process
    std::string attributes;             ///< "name=value" of both lines, with blanks between them
    std::vector<std::size_t> children;  ///< places in the report's list, in the order they began
};

}  // namespace packagesearch
