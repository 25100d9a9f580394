// Scopes of the C interface.
#include "AttributePairs.h"
#include "MisusedScope.h"
#include "ScopeAccess.h"
#include "UncaughtExceptions.h"
#include "Work.h"

#include "tarn/TarnSettings.h"

#include <atomic>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>

namespace tarn {
namespace {

using abi::tarn_attribute;
using abi::tarn_options;
using abi::tarn_scope;

Traits TraitsOf(const tarn_options* options) noexcept {
    return options == nullptr
               ? Traits()
               : Traits(TraceType(options->type), TraceRank(options->rank), options->flags);
}

/// Constructs what is in the room, where there is more to say than a name and attributes.
void BeginWithOptions(ScopeWork& work,
                      const char* name,
                      Traits traits,
                      const tarn_options& options,
                      const AttributePairs& attributes) {
    Metrics::NameValueList context =
        AttributePairs(options.context, options.context_count).ToList();
    if (options.from == nullptr) {
        new (work.room)
            ActivityScope(name, CustomContext(std::move(context)), traits, attributes.ToList());
        work.kind = Kind::Scope;
        return;
    }
    new (work.room) HandedWork(*options.from, name, traits, attributes.ToList());
    work.kind = Kind::Run;
    if (!context.empty()) {
        work.Scope().AddContext(CustomContext(std::move(context)));
    }
}

void End(ScopeWork& work) noexcept {
    if (work.kind == Kind::Scope) {
        work.Scope().~ActivityScope();
    } else {
        work.Handed().~HandedWork();
    }
    work.kind = Kind::Off;
}

/// The settings, which are never destroyed: found once.
const TarnSettings& Settings() noexcept {
    static constinit std::atomic<const TarnSettings*> found{nullptr};
    const TarnSettings* settings = found.load(std::memory_order_acquire);
    if (settings == nullptr) {
        settings = &TarnSettings::GetInstance();
        found.store(settings, std::memory_order_release);
    }
    return *settings;
}

inline bool IsOff(const tarn_options* options, abi::tarn_site* site, const char* name) {
    const TraceRank rank = TraitsOf(options).rank;
    return site != nullptr ? Settings().IsEitherOff(rank, *site, name)
                           : Settings().IsEitherOff(rank, name);
}

inline void Open(ScopeWork& work,
                 abi::tarn_site* site,
                 const char* name,
                 const tarn_options* options,
                 const tarn_attribute* attributes,
                 std::size_t count) {
    if (IsOff(options, site, name)) {
        return;
    }
    const Traits traits = TraitsOf(options);
    ThreadWork& thread = ThreadWork::OfThisThread();
    if (thread.Top() != nullptr && thread.Top()->isStay) {
        DropStaysThatAreOver(thread);
    }
    const AttributePairs pairs(attributes, count);
    if (options == nullptr || (options->from == nullptr && options->context_count == 0)) {
        ScopeAccess::Construct(work.room, name, traits, pairs);
        work.kind = Kind::Scope;
    } else {
        BeginWithOptions(work, name, traits, *options, pairs);
    }
    work.exceptionsAtBegin = UncaughtExceptions::OfThisThread();
    work.thread = &thread;
    work.isStay = false;
    thread.Push(work);
}

/// The same with a name that does not end with a NUL, or that the hand-over has.
[[gnu::noinline]] void OpenWithOtherName(ScopeWork& work,
                                         abi::tarn_site* site,
                                         const char* name,
                                         std::size_t nameLength,
                                         const tarn_options* options,
                                         const tarn_attribute* attributes,
                                         std::size_t count) {
    if (name == nullptr && options != nullptr && options->from != nullptr) {
        // What comes with the work is not the place's name.
        Open(work, nullptr, options->from->name.c_str(), options, attributes, count);
    } else {
        Open(work, site, NameText(name, nameLength).Get(), options, attributes, count);
    }
}

inline void OpenUnlessOff(tarn_scope& scope,
                          abi::tarn_site* site,
                          const char* name,
                          std::size_t nameLength,
                          const tarn_options* options,
                          const tarn_attribute* attributes,
                          std::size_t count) noexcept {
    auto& work = *new (static_cast<void*>(&scope)) ScopeWork;
    work.kind = Kind::Off;
    try {
        if (nameLength == TARN_TO_NUL && name != nullptr) {
            Open(work, site, name, options, attributes, count);
        } else {
            OpenWithOtherName(work, site, name, nameLength, options, attributes, count);
        }
    } catch (...) {
        // Without memory for it there is no scope.
        if (work.kind != Kind::Off) {
            End(work);
        }
    }
}

/// Measured scopes are checked when they end; this is for the others, whose thread's list would be
/// left with a frame that is gone.
[[noreturn]] void EndProcessForOtherThread() {
    std::fputs(
        "tarn: a tarn::Scope (tarn_scope) ended on another thread than it began on. For work "
        "that moves use a tarn::Activity (docs/front-door.md).\n",
        stderr);
    std::terminate();
}

}  // namespace

HandedWork::HandedWork(const abi::tarn_handoff& from,
                       const char* name,
                       Traits traits,
                       Metrics::NameValueList&& attributes)
    : run(from.handOver, name, traits, WithMark(from, std::move(attributes))),
      foreign(from.foreign) {}

}  // namespace tarn

namespace tarn::abi {

void tarn_scope_open(tarn_scope* scope,
                     const char* name,
                     std::size_t name_length,
                     const tarn_options* options,
                     const tarn_attribute* attributes,
                     std::size_t count) noexcept {
    OpenUnlessOff(*scope, nullptr, name, name_length, options, attributes, count);
}

void tarn_scope_open_at(tarn_scope* scope,
                        tarn_site* site,
                        const char* name,
                        std::size_t name_length,
                        const tarn_options* options,
                        const tarn_attribute* attributes,
                        std::size_t count) noexcept {
    OpenUnlessOff(*scope, site, name, name_length, options, attributes, count);
}

void tarn_scope_close(tarn_scope* scope) noexcept {
    auto& work = static_cast<ScopeWork&>(scope->work);
    if (work.kind == Kind::Off) {
        return;
    }
    ThreadWork& thread = *work.thread;
    if (&thread == &ThreadWork::OfThisThread()) {
        thread.Remove(work);
    } else if (work.Scope().GetTraits().type == TraceType::Untracked) {
        EndProcessForOtherThread();
    }
    // Only what is thrown within a scope makes it end early; a scope of a destructor that an
    // exception has called does not.
    if (UncaughtExceptions::OfThisThread() <= work.exceptionsAtBegin) {
        ScopeAccess::EndRegularly(work.Scope());
    }
    End(work);
    if (thread.Top() != nullptr && thread.Top()->isStay) {
        DropStaysThatAreOver(thread);
    }
}

}  // namespace tarn::abi
