#include "HeldLines.h"

#include "BackEndGuard.h"
#include "ThreadLocalObject.h"

#include "cvlcoreplatform/host/LineBatch.h"

#include <new>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace cvlcoreplatform {

namespace {

using TLog::LineBatch;

// More than that is not kept for the next batch.
constexpr std::size_t mostBytesKept = std::size_t{128} << 10;

struct HeldEvent {
    std::shared_ptr<HeldLinesTarget> target;
    BackEndUse use;
    TLog::Severity severity;
    std::variant<TLog::Event, TString> content;
};

struct Held {
    std::vector<HeldEvent> events;
    std::size_t eventsWritten = 0;  // the one that is being written included

    std::shared_ptr<HeldLinesTarget> target;
    BackEndUse use;
    std::string text;
    uint64 lines = 0;
    std::chrono::system_clock::time_point time;

    bool IsEmpty() const noexcept { return events.empty() && lines == 0; }

    void WriteLines() noexcept;
    void WriteEvents() noexcept;
};

using ThreadHeld = host::ThreadObject<Held>;

constinit thread_local std::optional<LineBatch::Holds> t_holds;

void Held::WriteLines() noexcept {
    if (lines == 0) {
        return;
    }
    const BackEndUse lastUse = std::move(use);
    const std::shared_ptr<HeldLinesTarget> lastTarget = std::move(target);
    lastTarget->WriteHeld(text, std::exchange(lines, 0), time);
    text.clear();
    if (text.capacity() > mostBytesKept) {
        text = std::string();
    }
}

void Held::WriteEvents() noexcept {
    while (eventsWritten < events.size()) {
        const HeldEvent& held = events[eventsWritten++];
        std::visit([&held](const auto& content) { held.target->WriteHeld(held.severity, content); },
                   held.content);
    }
    events.clear();
    eventsWritten = 0;
}

template <class Content>
bool HoldContent(const std::shared_ptr<HeldLinesTarget>& target,
                 TLog::Severity severity,
                 const Content& content) noexcept {
    try {
        Held* const held = ThreadHeld::Get();
        if (held == nullptr) {
            return false;
        }
        held->events.push_back({target, BackEndAccess::Get().use, severity, content});
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

bool HeldLines::AreLinesHeld() noexcept {
    return t_holds == LineBatch::Holds::Lines;
}

bool HeldLines::AreEventsHeld() noexcept {
    return t_holds == LineBatch::Holds::Events;
}

void HeldLines::Hold(const std::shared_ptr<HeldLinesTarget>& target,
                     std::string_view line,
                     std::chrono::system_clock::time_point time,
                     std::size_t mostBytes) {
    Held* const held = ThreadHeld::Get();
    if (held == nullptr) {
        target->WriteHeld(line, 1, time);  // the thread is being torn down
        return;
    }
    const BackEndUse& use = BackEndAccess::Get().use;
    if (held->target != target || held->use != use || held->text.size() + line.size() > mostBytes) {
        held->WriteLines();
    }
    const std::size_t before = held->text.size();
    try {
        if (before != 0) {
            held->text += '\n';
        }
        held->text += line;
    } catch (...) {
        held->text.resize(before);
        throw;
    }
    if (held->lines == 0) {
        held->target = target;
        held->use = use;
    }
    held->time = time;
    ++held->lines;
}

bool HeldLines::Hold(const std::shared_ptr<HeldLinesTarget>& target,
                     TLog::Severity severity,
                     const TLog::Event& event) noexcept {
    return HoldContent(target, severity, event);
}

bool HeldLines::Hold(const std::shared_ptr<HeldLinesTarget>& target,
                     TLog::Severity severity,
                     const TString& message) noexcept {
    return HoldContent(target, severity, message);
}

void HeldLines::WriteLines() noexcept {
    if (Held* const held = ThreadHeld::Peek()) {
        held->WriteLines();
    }
}

void HeldLines::Write() noexcept {
    if (Held* const held = ThreadHeld::Peek()) {
        held->WriteLines();
        held->WriteEvents();
    }
}

void HeldLines::WriteFromOutside() noexcept {
    const Held* const held = ThreadHeld::Peek();
    if (held != nullptr && !held->IsEmpty()) {
        const BackEndGuard guard;
        Write();
    }
}

void* HeldLines::OfThisThread() noexcept {
    return ThreadHeld::Peek();
}

// Complete lines are held by a thread that is not writing: the sink's lock is free. Of events the
// back end may be locked, so they are logged in the ordinary way.
void HeldLines::WriteInterrupted(void* interrupted, HeldEventsTarget&& events) noexcept {
    auto* const held = static_cast<Held*>(interrupted);
    if (held == nullptr) {
        return;
    }
    held->WriteLines();
    while (held->eventsWritten < held->events.size()) {
        const HeldEvent& event = held->events[held->eventsWritten++];
        std::visit([&](const auto& content) { events.WriteHeld(event.severity, content); },
                   event.content);
    }
}

}  // namespace cvlcoreplatform

namespace TLog {

LineBatch::LineBatch(Holds holds) noexcept : m_isOutermost(!cvlcoreplatform::t_holds.has_value()) {
    if (m_isOutermost) {
        cvlcoreplatform::t_holds = holds;
    }
}

LineBatch::~LineBatch() {
    if (m_isOutermost) {
        cvlcoreplatform::t_holds.reset();
        cvlcoreplatform::HeldLines::WriteFromOutside();
    }
}

}  // namespace TLog
