#pragma once

#include "activity/Activity.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Joins begin and end lines to activities as they come, and holds those that are open, nothing
/// else. Used by one thread.
///
/// An id is that of one activity in one process. Two that are open at once under the same id are
/// told apart by thread and name; the later one ends first. A process that is forked goes on with
/// what its parent has begun: what it ends is an activity that began in the parent, which ends it
/// for itself.
///
/// Each activity that ends is charged to the one that its end line names as its sponsor: the
/// nearest one around it that was still open, which is where its time was taken from.
class Joiner {
public:
    using OnActivity = std::function<void(Activity&&)>;
    using WasBegun = std::function<bool(const LogLine& end)>;

    /// `onActivity` receives each activity when its end has been read, also those whose begin is
    /// not in the log. Ends without a begin, and ids that are open twice, are reported. `wasBegun`
    /// may know of what was begun and ended in another process: such an end is no fault.
    Joiner(Problems& problems, OnActivity onActivity, WasBegun wasBegun = {})
        : m_problems(problems),
          m_onActivity(std::move(onActivity)),
          m_wasBegun(std::move(wasBegun)) {}

    /// Lines that are of no activity are passed over.
    void Take(const LogLine& line, const Place& place);

    /// Gives out what never ended, in the order of the begins.
    void Finish();

    std::size_t OpenCount() const { return m_openCount; }

    /// In the order of their begins. Valid until the next line.
    std::vector<const Activity*> Open() const;

    /// Takes over what another joiner held open, in the order of its Open().
    void Reopen(Activity&& activity);

    /// The one of any process that is open under this id, or null.
    const Activity* FindOpen(const std::string& id) const;

private:
    struct OpenActivity {
        Activity activity;
        std::uint64_t order = 0;
    };

    using OpenById = std::unordered_map<std::string, std::vector<OpenActivity>>;

    void Begin(const LogLine& line, const Place& place);
    void End(const LogLine& line, const Place& place);
    void ChargeSponsor(const LogLine& line, const Activity& activity);
    void BeginInParent(const LogLine& line, const Place& place, Activity& activity);
    static std::size_t Match(const std::vector<OpenActivity>& open, const LogLine& line);

    Problems& m_problems;
    OnActivity m_onActivity;
    WasBegun m_wasBegun;
    OpenById m_open;
    std::size_t m_openCount = 0;
    std::uint64_t m_begins = 0;
    std::string m_key;
};

}  // namespace tarnview
