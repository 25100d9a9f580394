// Activities of the C interface: who owns them, where they are current, and what is done about
// wrong use.
#include "AttributePairs.h"
#include "MisuseWarning.h"
#include "Work.h"

#include "tarn/TarnSettings.h"

#include <memory>
#include <new>
#include <utility>

namespace tarn {

namespace {

/// Frees what a thread still has when it ends.
class StaysOfThread {
public:
    StaysOfThread() = default;

    ~StaysOfThread() {
        s_areGone = true;
        ThreadWork& thread = ThreadWork::OfThisThread();
        for (ThreadWork::Frame* frame = thread.Top(); frame != nullptr;) {
            ThreadWork::Frame* const below = frame->below;
            if (frame->isStay) {
                thread.Remove(*frame);
                delete static_cast<Stay*>(frame);
            }
            frame = below;
        }
    }

    StaysOfThread(const StaysOfThread&) = delete;
    StaysOfThread& operator=(const StaysOfThread&) = delete;

    /// False late in a thread's exit.
    static bool Prepare() {
        if (!s_areGone) {
            thread_local const StaysOfThread stays;
            static_cast<void>(&stays);
        }
        return !s_areGone;
    }

private:
    static constinit thread_local bool s_areGone;
};

constinit thread_local bool StaysOfThread::s_areGone = false;

void DropReference(ActivityWork& activity) noexcept {
    if (activity.references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete &activity;
    }
}

/// Null when the activity is not resumed on the thread.
Stay* FindStay(const ThreadWork& thread, const ActivityWork& activity) noexcept {
    for (ThreadWork::Frame* frame = thread.Top(); frame != nullptr; frame = frame->below) {
        if (frame->isStay) {
            auto* const stay = static_cast<Stay*>(frame);
            if (&stay->activity == &activity && !stay->hasLeft) {
                return stay;
            }
        }
    }
    return nullptr;
}

/// Whether scopes that began within the stay are open.
bool HasScopes(const ThreadWork& thread, const Stay& stay) noexcept {
    const ThreadWork::Frame* above = nullptr;
    for (const ThreadWork::Frame* frame = thread.Top(); frame != &stay; frame = frame->below) {
        above = frame;
    }
    return above != nullptr && !above->isStay;
}

/// True if scopes that began within are still open: then their contexts stay until they end.
bool Leave(ThreadWork& thread, Stay& stay) {
    const bool hasScopes = HasScopes(thread, stay);
    if (hasScopes) {
        stay.hasLeft = true;
        stay.continuation.Leave();
    } else {
        thread.Remove(stay);
        delete &stay;
    }
    DropStaysThatAreOver(thread);
    return hasScopes;
}

/// Once.
void End(ActivityWork& activity) {
    ThreadWork& thread = ThreadWork::OfThisThread();
    if (Stay* const stay = FindStay(thread, activity)) {
        Leave(thread, *stay);
    }
    if (activity.stays.load(std::memory_order_relaxed) != 0 &&
        FindStay(thread, activity) == nullptr) {
        WarnOfMisuse(activity.name, u"ended while it was resumed on another thread");
    }
    const std::lock_guard guard(activity.lock);
    activity.run.reset();
}

ActivityWork* Get(abi::tarn_work* work) noexcept {
    return work != nullptr && work->kind == Kind::Activity ? static_cast<ActivityWork*>(work)
                                                           : nullptr;
}

}  // namespace

ActivityWork::ActivityWork(const char* activityName,
                           Traits traits,
                           const ActivityHandOver& from,
                           std::shared_ptr<const ForeignTrace> foreignTrace,
                           Metrics::NameValueList&& attributes)
    : abi::tarn_work{Kind::Activity},
      name(activityName),
      inside(from),
      foreign(std::move(foreignTrace)) {
    if (traits.type == TraceType::Transparent ||
        TarnSettings::GetInstance().IsEitherOff(traits.rank, activityName)) {
        return;
    }
    run.emplace(from,
                activityName,
                Traits(TraceType::Untracked, traits.rank, traits.flags),
                std::move(attributes));
    inside = ActivityHandOver();
    run->DetachFromThread();
}

Stay::Stay(ActivityWork& resumed)
    : ThreadWork::Frame{nullptr, true},
      activity(resumed),
      continuation(resumed.inside) {
    activity.references.fetch_add(1, std::memory_order_relaxed);
    activity.stays.fetch_add(1, std::memory_order_relaxed);
}

Stay::~Stay() {
    activity.stays.fetch_sub(1, std::memory_order_relaxed);
    // The continuation goes after this; it needs nothing of the activity.
    DropReference(activity);
}

std::shared_ptr<const ForeignTrace> FindForeignTrace(const ThreadWork& thread) noexcept {
    for (ThreadWork::Frame* frame = thread.Top(); frame != nullptr; frame = frame->below) {
        if (!frame->isStay) {
            auto* const scope = static_cast<ScopeWork*>(frame);
            if (scope->kind == Kind::Run) {
                return scope->Handed().foreign;
            }
        } else if (const auto* const stay = static_cast<Stay*>(frame); !stay->IsOver()) {
            return stay->activity.foreign;
        }
    }
    return nullptr;
}

void DropStaysThatAreOver(ThreadWork& thread) noexcept {
    while (thread.Top() != nullptr && thread.Top()->isStay) {
        auto* const stay = static_cast<Stay*>(thread.Top());
        if (!stay->IsOver()) {
            return;
        }
        thread.Remove(*stay);
        delete stay;
    }
}

}  // namespace tarn

namespace tarn::abi {

tarn_work* tarn_activity_begin(const char* name,
                               std::size_t name_length,
                               const tarn_options* options,
                               const tarn_attribute* attributes,
                               std::size_t count) noexcept {
    try {
        DropStaysThatAreOver(ThreadWork::OfThisThread());
        const tarn_handoff* const from = options != nullptr ? options->from : nullptr;
        const Traits traits =
            options != nullptr
                ? Traits(TraceType(options->type), TraceRank(options->rank), options->flags)
                : Traits();
        return new ActivityWork(
            name != nullptr || from == nullptr ? NameText(name, name_length).Get()
                                               : from->name.c_str(),
            traits,
            from != nullptr ? from->handOver : ActivityHandOver(),
            from != nullptr ? from->foreign : FindForeignTrace(ThreadWork::OfThisThread()),
            from != nullptr ? WithMark(*from, AttributePairs(attributes, count).ToList())
                            : AttributePairs(attributes, count).ToList());
    } catch (...) {
        return nullptr;
    }
}

void tarn_activity_end(tarn_work* activity) noexcept {
    if (ActivityWork* const work = Get(activity)) {
        if (work->hasEnded.exchange(true, std::memory_order_acq_rel)) {
            WarnOfMisuse(work->name, u"was ended after its end");
            return;
        }
        End(*work);
    }
}

void tarn_activity_retain(tarn_work* activity) noexcept {
    if (ActivityWork* const work = Get(activity)) {
        work->owners.fetch_add(1, std::memory_order_relaxed);
    }
}

void tarn_activity_release(tarn_work* activity) noexcept {
    ActivityWork* const work = Get(activity);
    if (work == nullptr || work->owners.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return;
    }
    if (!work->hasEnded.exchange(true, std::memory_order_acq_rel)) {
        End(*work);
    }
    DropReference(*work);
}

void tarn_activity_resume(tarn_work* activity) noexcept {
    ActivityWork* const work = Get(activity);
    if (work == nullptr) {
        return;
    }
    ThreadWork& thread = ThreadWork::OfThisThread();
    DropStaysThatAreOver(thread);
    if (work->hasEnded.load(std::memory_order_acquire)) {
        WarnOfMisuse(work->name, u"was resumed after its end");
        return;
    }
    if (FindStay(thread, *work) != nullptr) {
        WarnOfMisuse(work->name, u"was resumed on a thread where it is resumed already");
        return;
    }
    try {
        if (StaysOfThread::Prepare()) {
            thread.Push(*new Stay(*work));
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): without memory it is not resumed
    }
}

void tarn_activity_suspend(tarn_work* activity) noexcept {
    ActivityWork* const work = Get(activity);
    if (work == nullptr) {
        return;
    }
    ThreadWork& thread = ThreadWork::OfThisThread();
    if (Stay* const stay = FindStay(thread, *work)) {
        if (Leave(thread, *stay)) {
            WarnOfMisuse(work->name, u"was suspended before scopes that began within it ended");
        }
    } else if (!work->hasEnded.load(std::memory_order_acquire)) {
        WarnOfMisuse(work->name, u"was suspended on a thread where it is not resumed");
    }
}

tarn_work* tarn_current() noexcept {
    ThreadWork& thread = ThreadWork::OfThisThread();
    for (ThreadWork::Frame* frame = thread.Top(); frame != nullptr; frame = frame->below) {
        if (!frame->isStay) {
            return static_cast<ScopeWork*>(frame);
        }
        auto* const stay = static_cast<Stay*>(frame);
        if (!stay->IsOver()) {
            return &stay->activity;
        }
    }
    return nullptr;
}

tarn_handoff* tarn_handoff_take(tarn_work* activity,
                                const char* name,
                                std::size_t name_length) noexcept {
    try {
        const ActivityWork* const work = Get(activity);
        DropStaysThatAreOver(ThreadWork::OfThisThread());
        return new tarn_handoff{
            {1},
            work != nullptr ? work->inside : ActivityHandOver(),
            NameText(name, name_length).Get(),
            work != nullptr ? work->foreign : FindForeignTrace(ThreadWork::OfThisThread())};
    } catch (...) {
        return nullptr;
    }
}

void tarn_handoff_retain(tarn_handoff* handoff) noexcept {
    if (handoff != nullptr) {
        handoff->owners.fetch_add(1, std::memory_order_relaxed);
    }
}

void tarn_handoff_release(tarn_handoff* handoff) noexcept {
    if (handoff != nullptr && handoff->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete handoff;
    }
}

}  // namespace tarn::abi
