#include "model/Joiner.h"

#include <algorithm>
#include <utility>

namespace tarnview {

void Joiner::Take(const LogLine& line, const Place& place) {
    if (line.kind == LineKind::Begin) {
        Begin(line, place);
    } else if (line.kind == LineKind::End) {
        End(line, place);
    }
}

void Joiner::Begin(const LogLine& line, const Place& place) {
    m_key = line.id;
    std::vector<OpenActivity>& open = m_open[m_key];
    const bool isRepeated = std::any_of(open.begin(), open.end(), [&](const OpenActivity& other) {
        return other.activity.process == line.process && line.depth != 0;
    });
    if (isRepeated) {
        m_problems.Report(ProblemKind::RepeatedId, place, m_key + " is open already");
    }
    OpenActivity& added = open.emplace_back();
    added.order = m_begins++;
    ReadBegin(line, place, added.activity);
    ++m_openCount;
}

void Joiner::End(const LogLine& line, const Place& place) {
    m_key = line.id;
    Activity activity;
    const auto found = m_open.find(m_key);
    const std::size_t match = found == m_open.end() ? 0 : Match(found->second, line);
    if (found == m_open.end() || match == found->second.size()) {
        BeginInParent(line, place, activity);
    } else {
        activity = std::move(found->second[match].activity);
        found->second.erase(found->second.begin() + static_cast<std::ptrdiff_t>(match));
        if (found->second.empty()) {
            m_open.erase(found);
        }
        --m_openCount;
    }
    ReadEnd(line, place, activity);
    ChargeSponsor(line, activity);
    m_onActivity(std::move(activity));
}

// Takes over what another process of the host has begun and not ended; its children so far are
// unknown.
void Joiner::BeginInParent(const LogLine& line, const Place& place, Activity& activity) {
    const auto found = m_open.find(m_key);
    if (found != m_open.end()) {
        const auto parent = std::find_if(
            found->second.rbegin(), found->second.rend(), [&](const OpenActivity& other) {
                const ProcessId& process = other.activity.process;
                return process != line.process && process.host == line.process.host &&
                       other.activity.name == line.name;
            });
        if (parent != found->second.rend()) {
            activity = parent->activity;
            activity.process = line.process;
            activity.isForked = true;
            return;
        }
    }
    if (!m_wasBegun || !m_wasBegun(line)) {
        m_problems.Report(
            ProblemKind::EndWithoutBegin, place, std::string(line.name) + " " + m_key);
    }
}

// As the library does: to the open sponsor in its process, if that began on the thread.
void Joiner::ChargeSponsor(const LogLine& line, const Activity& activity) {
    if (line.sponsor.empty() || line.sponsor == line.id) {
        return;
    }
    m_key = line.sponsor;
    const auto found = m_open.find(m_key);
    if (found == m_open.end()) {
        return;
    }
    std::vector<OpenActivity>& open = found->second;
    const auto sponsor = std::find_if(open.rbegin(), open.rend(), [&](const OpenActivity& other) {
        return other.activity.process == activity.process &&
               other.activity.beginThread == activity.endThread;
    });
    if (sponsor != open.rend()) {
        sponsor->activity.childrenTime += activity.Duration();
        sponsor->activity.childrenLoggedTime += activity.LoggedDuration();
    }
}

// The number of the activity that the line ends; `open.size()` if it ends none of them.
std::size_t Joiner::Match(const std::vector<OpenActivity>& open, const LogLine& line) {
    std::size_t best = open.size();
    int bestLikeness = 0;
    for (std::size_t index = open.size(); index-- != 0;) {
        const Activity& activity = open[index].activity;
        if (activity.process != line.process || activity.name != line.name) {
            continue;
        }
        const int likeness = activity.beginThread == line.thread ? 2 : 1;
        if (likeness > bestLikeness) {
            best = index;
            bestLikeness = likeness;
        }
    }
    return best;
}

std::vector<const Activity*> Joiner::Open() const {
    std::vector<const OpenActivity*> open;
    for (const auto& [id, activities] : m_open) {
        for (const OpenActivity& activity : activities) {
            open.push_back(&activity);
        }
    }
    std::sort(
        open.begin(), open.end(), [](const auto* a, const auto* b) { return a->order < b->order; });
    std::vector<const Activity*> result;
    result.reserve(open.size());
    for (const OpenActivity* activity : open) {
        result.push_back(&activity->activity);
    }
    return result;
}

void Joiner::Reopen(Activity&& activity) {
    OpenActivity& added = m_open[activity.id].emplace_back();
    added.order = m_begins++;
    added.activity = std::move(activity);
    ++m_openCount;
}

const Activity* Joiner::FindOpen(const std::string& id) const {
    const auto found = m_open.find(id);
    return found == m_open.end() ? nullptr : &found->second.back().activity;
}

void Joiner::Finish() {
    std::vector<OpenActivity*> rest;
    for (auto& [id, activities] : m_open) {
        for (OpenActivity& activity : activities) {
            rest.push_back(&activity);
        }
    }
    std::sort(
        rest.begin(), rest.end(), [](const auto* a, const auto* b) { return a->order < b->order; });
    for (OpenActivity* const open : rest) {
        m_onActivity(std::move(open->activity));
    }
    m_open.clear();
    m_openCount = 0;
}

}  // namespace tarnview
