#include "cvlmetrics/Context.h"

#include "ContextAnnouncement.h"
#include "ContextState.h"
#include "PendingContexts.h"
#include "ThreadContexts.h"

#include "cvlsys/TSystem.h"

#include <atomic>
#include <new>

namespace Metrics {

// A name of its own for what the declaration keeps to itself.
struct Context::State : ContextState {
    using ContextState::ContextState;
};

namespace {

constinit std::atomic<uint64> s_lastContextId{0};

}  // namespace

uint64 Context::Create(bool isRoot) {
    const uint64 id = s_lastContextId.fetch_add(1, std::memory_order_relaxed) + 1;
    ContextState* const parent = isRoot ? nullptr : ThreadContexts::Current();
    const uint64 parentId = parent != nullptr ? parent->id : 0;
    if (parentId != 0) {
        PendingContexts::Keep(id, {.parentId = parentId});
    }
    // A child of a context that nobody knows of would make its parent known for ever.
    const bool canBeSaid = parent == nullptr || ContextAnnouncement::IsKnown(*parent);
    if (!canBeSaid || !ContextAnnouncement::SayCreated(id, parentId)) {
        PendingContexts::Take(id);
        PendingContexts::Keep(id, {.parentId = parentId, .isUnannounced = true});
    }
    return id;
}

Context::Context(uint64 flags, uint64 id) {
    const PendingContexts::Facts facts = PendingContexts::Take(id);
    try {
        m_state = std::make_shared<State>(id, flags, facts.parentId);
    } catch (const std::bad_alloc&) {
        // It was announced, and there will be no object to end it.
        if (!facts.isUnannounced) {
            ContextAnnouncement::SayClosed(State(id, flags, facts.parentId));
        }
        throw;
    }
    m_state->isUnannounced.store(facts.isUnannounced, std::memory_order_relaxed);
}

Context::~Context() {
    // First of all it is no longer current: what a listener opens on hearing of the end belongs
    // elsewhere.
    m_state->ended.store(true, std::memory_order_relaxed);
    ThreadContexts::Remove(*m_state);
    if (!m_state->isUnannounced.load(std::memory_order_relaxed)) {
        ContextAnnouncement::SayClosed(*m_state);
    }
}

void Context::OpenScope() {
    if (!m_state->isUnannounced.load(std::memory_order_relaxed)) {
        ContextAnnouncement::SayOpened(*m_state, TSystem::ThreadID());
    }
    ThreadContexts::Push(m_state);
}

void Context::AttachToThread() {
    const uint64 threadId = TSystem::ThreadID();
    if (!m_state->isUnannounced.load(std::memory_order_relaxed) &&
        m_state->announcedThread.load(std::memory_order_relaxed) != threadId) {
        ContextAnnouncement::SayThread(*m_state, threadId);
    }
    ThreadContexts::Push(m_state);
}

void Context::DetachFromThread() {
    ThreadContexts::Remove(*m_state);
}

uint64 Context::GetId() const noexcept {
    return m_state->id;
}

void Context_deleter::operator()(Context* context) const noexcept {
    delete context;
}

}  // namespace Metrics
