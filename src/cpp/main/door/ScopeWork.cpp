// Scopes of the C interface.
#include "AttributePairs.h"
#include "MisusedScope.h"
#include "ScopeAccess.h"
#include "Work.h"

#include "tarn/TarnSettings.h"

#include <cstdio>
#include <cstdlib>
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

/// Constructs what is in the room.
void Begin(ScopeWork& work,
           const char* name,
           Traits traits,
           const tarn_options* options,
           const AttributePairs& attributes) {
    if (options == nullptr || (options->from == nullptr && options->context_count == 0)) {
        work.scope = ScopeAccess::Construct(work.room, name, traits, attributes);
        work.kind = Kind::Scope;
        return;
    }
    Metrics::NameValueList context =
        AttributePairs(options->context, options->context_count).ToList();
    if (options->from == nullptr) {
        work.scope = new (work.room)
            ActivityScope(name, CustomContext(std::move(context)), traits, attributes.ToList());
        work.kind = Kind::Scope;
        return;
    }
    auto* const run = new (work.room)
        ActivityHandOver::Run(options->from->handOver, name, traits, attributes.ToList());
    work.scope = &run->Scope();
    work.kind = Kind::Run;
    if (!context.empty()) {
        work.scope->AddContext(CustomContext(std::move(context)));
    }
}

void End(ScopeWork& work) noexcept {
    if (work.kind == Kind::Run) {
        reinterpret_cast<ActivityHandOver::Run*>(work.room)->~Run();
    } else {
        work.scope->~ActivityScope();
    }
    work.kind = Kind::Off;
}

void OpenOrThrow(ScopeWork& work,
                 const char* name,
                 const tarn_options* options,
                 const tarn_attribute* attributes,
                 std::size_t count) {
    const Traits traits = TraitsOf(options);
    if (TarnSettings::GetInstance().IsEitherOff(traits.rank, name)) {
        return;
    }
    ThreadWork& thread = ThreadWork::OfThisThread();
    if (thread.Top() != nullptr && thread.Top()->isStay) {
        DropStaysThatAreOver(thread);
    }
    Begin(work, name, traits, options, AttributePairs(attributes, count));
    work.exceptionsAtBegin = std::uncaught_exceptions();
    work.thread = &thread;
    work.frame.work = &work;
    work.frame.isStay = false;
    thread.Push(work.frame);
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
}  // namespace tarn

namespace tarn::abi {

void tarn_scope_open(tarn_scope* scope,
                     const char* name,
                     std::size_t name_length,
                     const tarn_options* options,
                     const tarn_attribute* attributes,
                     std::size_t count) noexcept {
    auto& work = *new (static_cast<void*>(scope)) ScopeWork;
    work.kind = Kind::Off;
    try {
        if (name_length == TARN_TO_NUL && name != nullptr) {
            OpenOrThrow(work, name, options, attributes, count);
        } else if (name != nullptr || options == nullptr || options->from == nullptr) {
            OpenOrThrow(work, NameText(name, name_length).Get(), options, attributes, count);
        } else {
            OpenOrThrow(work, options->from->name.c_str(), options, attributes, count);
        }
    } catch (...) {
        // Without memory for it there is no scope.
        if (work.kind != Kind::Off) {
            End(work);
        }
    }
}

void tarn_scope_close(tarn_scope* scope) noexcept {
    auto& work = static_cast<ScopeWork&>(scope->work);
    if (work.kind == Kind::Off) {
        return;
    }
    ThreadWork& thread = *work.thread;
    if (&thread == &ThreadWork::OfThisThread()) {
        thread.Remove(work.frame);
    } else if (work.scope->GetTraits().type == TraceType::Untracked) {
        EndProcessForOtherThread();
    }
    // Only what is thrown within a scope makes it end early; a scope of a destructor that an
    // exception has called does not.
    if (work.exceptionsAtBegin != 0 && std::uncaught_exceptions() <= work.exceptionsAtBegin) {
        ScopeAccess::EndRegularly(*work.scope);
    }
    End(work);
    if (thread.Top() != nullptr && thread.Top()->isStay) {
        DropStaysThatAreOver(thread);
    }
}

}  // namespace tarn::abi
