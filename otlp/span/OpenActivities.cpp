#include "span/OpenActivities.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tarn::otlp {

namespace {

// The times of the two lines are finer than `elapsed`, which counts if clocks were set in between.
Microseconds DurationOf(Microseconds begin, Microseconds end, double elapsedSeconds) {
    constexpr Microseconds tolerance = 2'000;
    const Microseconds elapsed = std::llround(elapsedSeconds * 1e6);
    const Microseconds measured = end - begin;
    const bool agrees = measured >= elapsed && measured < elapsed + tolerance;
    return std::max<Microseconds>(agrees ? measured : elapsed, 0);
}

// Of what is open under one id, what an end line of the process ends; the size if none of it.
std::size_t Match(const std::vector<OpenActivity>& open, const LineFacts& line) {
    std::size_t best = open.size();
    for (std::size_t index = open.size(); index-- != 0;) {
        if (open[index].process != line.process || open[index].name != line.name) {
            continue;
        }
        if (open[index].thread == line.thread) {
            return index;
        }
        best = best == open.size() ? index : best;
    }
    return best;
}

}  // namespace

std::size_t OpenActivity::Bytes() const {
    return sizeof(OpenActivity) + 2 * id.size() + name.size() + sponsor.size() + caller.size() +
           root.size() + description.size() + body.size() + line.size();
}

bool OpenActivities::Begin(const LineFacts& line, std::string_view text) {
    OpenActivity open;
    open.id = line.id;
    open.name = line.name;
    open.sponsor = line.sponsor;
    open.caller = line.caller;
    open.root = line.root;
    open.description = line.description;
    open.body = line.body;
    open.process = line.process;
    open.thread = line.thread;
    open.begin = line.time;
    open.order = m_begins++;
    if (m_keepsLines) {
        open.line = text;
    }
    const std::size_t bytes = open.Bytes();
    if (bytes > m_maxBytes - std::min(m_maxBytes, m_bytes)) {
        return false;
    }
    m_open[open.id].push_back(std::move(open));
    m_bytes += bytes;
    ++m_size;
    return true;
}

// Into m_ended. False if it is not there; true for what another process has begun, which stays.
bool OpenActivities::TakeBegin(const LineFacts& line) {
    m_key = line.id;
    const auto found = m_open.find(m_key);
    if (found == m_open.end()) {
        return false;
    }
    std::vector<OpenActivity>& open = found->second;
    const std::size_t match = Match(open, line);
    if (match == open.size()) {
        const auto parent = std::find_if(open.rbegin(), open.rend(), [&](const OpenActivity& it) {
            return it.name == line.name;
        });
        if (parent == open.rend()) {
            return false;
        }
        m_ended = *parent;
        return true;
    }
    m_ended = std::move(open[match]);
    m_bytes -= m_ended.Bytes();
    --m_size;
    open.erase(open.begin() + static_cast<std::ptrdiff_t>(match));
    if (open.empty()) {
        m_open.erase(found);
    }
    return true;
}

ActivityFacts OpenActivities::End(const LineFacts& line) {
    ActivityFacts activity;
    if (TakeBegin(line)) {
        activity.isForked = m_ended.process != line.process;
        activity.sponsor = m_ended.sponsor;
        activity.caller = m_ended.caller;
        activity.root = m_ended.root;
        activity.description = m_ended.description;
        activity.beginBody = m_ended.body;
        activity.thread = m_ended.thread;
        activity.begin = m_ended.begin;
        activity.end = m_ended.begin + DurationOf(m_ended.begin, line.time, line.elapsed);
    } else {
        activity.sponsor = line.sponsor;
        activity.caller = line.caller;
        activity.root = line.root;
        activity.thread = line.thread;
        activity.end = line.time;
        activity.begin = line.time - std::max<Microseconds>(std::llround(line.elapsed * 1e6), 0);
    }
    activity.id = line.id;
    activity.name = line.name;
    activity.process = line.process;
    activity.session = line.session;
    activity.request = line.request;
    activity.user = line.user;
    activity.site = line.site;
    if (!line.description.empty()) {
        activity.description = line.description;
    }
    // What works for another process names itself as its sponsor.
    if (activity.sponsor == activity.id && activity.root != activity.id) {
        activity.kind = SpanKind::Server;
    }
    activity.result = line.result;
    activity.figures = line.figures;
    activity.resultDetails = line.resultDetails;
    activity.attributes = line.attributes;
    activity.endBody = line.body;
    return activity;
}

std::vector<const OpenActivity*> OpenActivities::List() const {
    std::vector<const OpenActivity*> list;
    list.reserve(m_size);
    for (const auto& [id, activities] : m_open) {
        for (const OpenActivity& activity : activities) {
            list.push_back(&activity);
        }
    }
    std::sort(
        list.begin(), list.end(), [](const auto* a, const auto* b) { return a->order < b->order; });
    return list;
}

}  // namespace tarn::otlp
