#pragma once

#include "activity/Activity.h"
#include "model/Filter.h"
#include "model/TopStatistics.h"
#include "read/LogScanner.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// Activities that were joined when their lines were read, elsewhere and earlier. Used by one
/// thread. All throw `std::runtime_error` if the source cannot answer.
class ActivitySource {
public:
    using OnActivity = std::function<void(Activity&&)>;

    /// What is wanted. More may come: who asks looks again.
    struct Selection {
        bool wantsTables = false;
        const Filter* filter = nullptr;    ///< those that may pass; null: all
        bool wantsWholeTrees = false;      ///< and all others of their trees
        std::vector<std::string> roots{};  ///< those of these trees; empty: all
        std::string id{};                  ///< those whose ids begin so
        bool isOrdered = true;             ///< as their lines were: those that ended by their ends,
                                           ///< then those that did not by their begins
    };

    ActivitySource() = default;
    ActivitySource(const ActivitySource&) = delete;
    ActivitySource& operator=(const ActivitySource&) = delete;
    virtual ~ActivitySource() = default;

    virtual void Read(const Selection& selection, const OnActivity& onActivity) = 0;

    /// Those that have not ended, in the order of their begins.
    virtual void ReadOpen(bool wantsTables, const OnActivity& onActivity) = 0;

    /// The lines that are of no activity, in their order.
    virtual void ReadMessages(const LogScanner::OnLine& onLine) = 0;

    /// Of all lines what tells which processes are alive: of each its last one, with the latest
    /// time of all, and those in which it says that it starts, crashes or where it runs.
    virtual void ReadSignsOfLife(bool wantsHosts, const LogScanner::OnLine& onLine) = 0;

    /// The figures that TopStatistics has of these activities; nothing if they must be computed
    /// from the activities.
    virtual std::optional<std::vector<TopRow>> Top(const std::vector<std::string>& groups,
                                                   const Filter& filter) = 0;

    /// The earliest time of a line; 0 if there is none.
    virtual Microseconds FirstTime() = 0;

    /// The latest time of an activity; 0 if there is none.
    virtual Microseconds LastTime() = 0;
};

}  // namespace tarnview
