#include "activity/Activity.h"

#include "read/Rounding.h"

#include <cstdlib>

namespace tarnview {

namespace {

constexpr double microsecondsPerSecond = 1e6;

void ReadIdentity(const LogLine& line, Activity& activity) {
    activity.id = line.id;
    activity.name = line.name;
    activity.sponsor = line.sponsor;
    activity.root = line.root;
    activity.caller = line.caller;
    activity.depth = line.depth;
    activity.process = line.process;
}

// Both lines say for whom the work is done, and the later one may know more.
void ReadOwner(const LogLine& line, Activity& activity) {
    activity.session = line.session;
    activity.user = line.user;
    activity.site = line.site;
    activity.request = line.request;
    if (!line.description.empty()) {
        activity.description = line.description;
    }
    activity.attributes = line.attributes;
}

}  // namespace

Microseconds Activity::LoggedDuration() const {
    return Rounded(elapsed * microsecondsPerSecond);
}

Microseconds Activity::LoggedExclusiveTime() const {
    return Rounded(exclusive * microsecondsPerSecond);
}

Microseconds Activity::Duration() const {
    constexpr Microseconds tolerance = 2'000;
    const Microseconds logged = LoggedDuration();
    const Microseconds measured = end - begin;
    const bool agrees = measured >= logged && measured < logged + tolerance;
    return hasBegin && hasEnd && agrees ? measured : logged;
}

Microseconds Activity::ExclusiveTime() const {
    constexpr Microseconds halfOfTheLastDigit = 500;
    const Microseconds logged = LoggedExclusiveTime();
    const Microseconds difference = LoggedDuration() - childrenLoggedTime - logged;
    return std::abs(difference) < halfOfTheLastDigit ? Duration() - childrenTime : logged;
}

void ReadBegin(const LogLine& line, const Place& place, Activity& activity) {
    ReadIdentity(line, activity);
    ReadOwner(line, activity);
    activity.hasBegin = true;
    activity.beginThread = activity.endThread = line.thread;
    activity.begin = activity.end = line.time;
    activity.beginPlace = place;
    activity.beginBody = line.body;
}

void ReadEnd(const LogLine& line, const Place& place, Activity& activity) {
    activity.hasSeveralRequests = activity.hasBegin && activity.request != line.request;
    ReadOwner(line, activity);
    activity.elapsed = line.elapsed;
    activity.end = line.time;
    if (!activity.hasBegin) {
        ReadIdentity(line, activity);
        activity.beginThread = line.thread;
        activity.begin = line.time - Rounded(line.elapsed * microsecondsPerSecond);
    }
    activity.hasEnd = true;
    activity.endThread = line.thread != 0 ? line.thread : activity.beginThread;
    activity.endPlace = place;
    activity.exclusive = line.exclusive;
    activity.result = line.result;
    activity.failedChildren = line.failedChildren;
    activity.terminatedChildren = line.terminatedChildren;
    activity.figures = line.figures;
    activity.environment = line.environment;
    activity.resultDetails = line.resultDetails;
    activity.endBody = line.body;
}

}  // namespace tarnview
