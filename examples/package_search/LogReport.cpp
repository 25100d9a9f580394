#include "LogReport.h"

#include "LogReader.h"

#include <algorithm>
#include <unordered_map>

namespace packagesearch {

namespace {

using IndexById = std::unordered_map<std::string, std::size_t>;

bool Encloses(const LoggedActivity& outer, const LoggedActivity& inner) {
    const bool endsLater = outer.end.empty() || (!inner.end.empty() && outer.end >= inner.end);
    return outer.begin <= inner.begin && endsLater;
}

// The place of the only activity that can have called this one; of none the list's size.
std::size_t FindCaller(const std::vector<LoggedActivity>& activities,
                       const LoggedActivity& called) {
    std::size_t found = activities.size();
    for (std::size_t index = 0; index < activities.size(); ++index) {
        const LoggedActivity& candidate = activities[index];
        if (candidate.callsPeer && candidate.root == called.root &&
            candidate.depth + 1 == called.depth && Encloses(candidate, called)) {
            if (found != activities.size()) {
                return activities.size();
            }
            found = index;
        }
    }
    return found;
}

// An activity that goes on where another process left off is named as its own sponsor, or the
// root is: the log does not know the caller.
bool CameFromElsewhere(const LoggedActivity& activity) {
    return activity.depth > 0 &&
           (activity.sponsor == activity.id || activity.sponsor == activity.root);
}

// The size of the list when it has none.
std::size_t FindParent(const std::vector<LoggedActivity>& activities,
                       const IndexById& indexById,
                       const LoggedActivity& activity) {
    if (activity.depth > 1 && CameFromElsewhere(activity)) {
        const std::size_t caller = FindCaller(activities, activity);
        if (caller != activities.size()) {
            return caller;
        }
    }
    const auto place =
        indexById.find(CameFromElsewhere(activity) ? activity.root : activity.sponsor);
    return place == indexById.end() ? activities.size() : place->second;
}

}  // namespace

std::map<std::string, std::size_t> LogReport::CountByName() const {
    std::map<std::string, std::size_t> counts;
    for (const LoggedActivity& activity : activities) {
        ++counts[activity.name];
    }
    return counts;
}

const LoggedActivity* LogReport::Slowest(std::string_view name) const {
    const LoggedActivity* slowest = nullptr;
    for (const LoggedActivity& activity : activities) {
        const bool isCandidate = activity.name == name && !activity.result.empty();
        if (isCandidate && (slowest == nullptr || activity.elapsed > slowest->elapsed)) {
            slowest = &activity;
        }
    }
    return slowest;
}

void LogReport::LinkChildren() {
    IndexById indexById;
    for (std::size_t index = 0; index < activities.size(); ++index) {
        activities[index].children.clear();
        indexById.emplace(activities[index].id, index);
    }
    for (std::size_t index = 0; index < activities.size(); ++index) {
        const std::size_t parent = FindParent(activities, indexById, activities[index]);
        if (parent < activities.size() && parent != index) {
            activities[parent].children.push_back(index);
        }
    }
    for (LoggedActivity& activity : activities) {
        std::stable_sort(activity.children.begin(),
                         activity.children.end(),
                         [this](std::size_t a, std::size_t b) {
                             return activities[a].begin < activities[b].begin;
                         });
    }
}

LogReport ReadLog(const LogPosition& start, std::uint32_t process) {
    LogReader reader(process);
    std::uintmax_t offset = start.offset;
    for (const std::filesystem::path& file : FilesSince(start)) {
        reader.ReadLines(ReadLogFile(file, offset));
        offset = 0;
    }
    return reader.Finish();
}

LogReport ReadLogs(const std::vector<std::filesystem::path>& logs) {
    LogReader reader;
    for (const std::filesystem::path& log : logs) {
        for (const std::filesystem::path& file : FilesOf(log)) {
            reader.ReadLines(ReadLogFile(file, 0));
        }
    }
    return reader.Finish();
}

}  // namespace packagesearch
