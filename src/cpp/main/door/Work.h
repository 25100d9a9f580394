#pragma once

#include "RequestHeaders.h"
#include "ThreadWork.h"

#include "tarn/ActivityHandOver.h"
#include "tarn/ActivityScope.h"
#include "tarn/tarn.h"

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>

// What is behind the structures of the C interface.

namespace tarn {

namespace Kind {

/// Of `tarn_work::kind`.
enum : uint64 { Off = 0, Scope = 1, Run = 2, Activity = 3 };

}  // namespace Kind

/// A run of work that was handed over.
struct HandedWork {
    HandedWork(const abi::tarn_handoff& from,
               const char* name,
               Traits traits,
               Metrics::NameValueList&& attributes);

    ActivityHandOver::Run run;
    const std::shared_ptr<const ForeignTrace> foreign;  ///< null if there is none
};

/// In the caller's `tarn_scope`. Nothing but the kind is set while it is off.
struct ScopeWork : abi::tarn_work, ThreadWork::Frame {
    ActivityScope& Scope() noexcept {
        return kind == Kind::Scope ? *std::launder(reinterpret_cast<ActivityScope*>(room))
                                   : Handed().run.Scope();
    }

    /// Of a run.
    HandedWork& Handed() noexcept { return *std::launder(reinterpret_cast<HandedWork*>(room)); }

    ThreadWork* thread;  ///< that it began on
    unsigned exceptionsAtBegin;

    // An `ActivityScope`, or a `HandedWork`.
    alignas(HandedWork) std::byte room[std::max(sizeof(ActivityScope), sizeof(HandedWork))];
};

// What is left over is for scopes that need more one day.
static_assert(sizeof(ScopeWork) + 128 <= sizeof(abi::tarn_scope));
static_assert(alignof(ScopeWork) <= alignof(abi::tarn_scope));

/// Shared by those that own it and by its stays on threads. Its owners' last one ends it.
struct ActivityWork : abi::tarn_work {
    /// Begins under `from`, or under what is current. One that is off or transparent begins
    /// nothing: what belongs to it belongs to what it would have begun under. Throws
    /// `std::bad_alloc`.
    ActivityWork(const char* activityName,
                 Traits traits,
                 const ActivityHandOver& from,
                 std::shared_ptr<const ForeignTrace> foreignTrace,
                 Metrics::NameValueList&& attributes);

    std::atomic<uint32> owners{1};
    std::atomic<uint32> references{1};
    std::atomic<uint32> stays{0};
    std::atomic<bool> hasEnded{false};
    const std::string name;

    // Guards the run. Recursive, as a sink may say something of the activity that it hears of.
    std::recursive_mutex lock;
    std::optional<ActivityHandOver::Run> run;  ///< none when it is off, or has ended

    /// For what belongs to it.
    ActivityHandOver inside;
    const std::shared_ptr<const ForeignTrace> foreign;
};

/// An activity that was resumed on a thread, until it is suspended there. Owned by the thread's
/// list.
struct Stay : ThreadWork::Frame {
    explicit Stay(ActivityWork& resumed);
    ~Stay();
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

    /// Whether nothing that begins on the thread belongs to it any more.
    bool IsOver() const noexcept {
        return hasLeft || activity.hasEnded.load(std::memory_order_acquire);
    }

    ActivityWork& activity;
    bool hasLeft = false;
    ActivityHandOver::Continuation continuation;
};

/// Frees the stays that are over and have no scope above them, as they ended on another thread or
/// before the scopes that began within them.
void DropStaysThatAreOver(ThreadWork& thread) noexcept;

/// What came with the request that the thread works for; null if nothing did.
std::shared_ptr<const ForeignTrace> FindForeignTrace(const ThreadWork& thread) noexcept;

/// The attributes of what goes on with the hand-over. Throws `std::bad_alloc`.
Metrics::NameValueList WithMark(const abi::tarn_handoff& from, Metrics::NameValueList&& attributes);

/// A text of the C interface as one that ends with a NUL. Throws `std::bad_alloc`.
class NameText {
public:
    NameText(const char* text, std::size_t length) {
        if (length != TARN_TO_NUL && text != nullptr) {
            m_copy.assign(text, length);
            m_text = m_copy.c_str();
        } else {
            m_text = text != nullptr ? text : "";
        }
    }

    const char* Get() const noexcept { return m_text; }

private:
    std::string m_copy;
    const char* m_text;
};

}  // namespace tarn

namespace tarn::abi {

struct tarn_handoff {  // NOLINT(readability-identifier-naming): named in C
    std::atomic<uint32> owners{1};
    const ActivityHandOver handOver;
    const std::string name;
    const std::shared_ptr<const ForeignTrace> foreign;
    const bool isMarked = false;  ///< what goes on with it says that it is sampled
};

}  // namespace tarn::abi
