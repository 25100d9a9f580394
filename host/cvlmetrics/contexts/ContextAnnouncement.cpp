#include "ContextAnnouncement.h"

#include "Bus.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/TSystem.h"
#include "cvlsys/host/ForkOrder.h"

#include <atomic>

namespace Metrics::ContextAnnouncement {

namespace {

EventView ContextEvent(MetricsEventType type, uint64 id, uint64 parentId, uint64 flags) {
    EventView event;
    event.id = id;
    event.contextId = parentId;
    event.flags = flags;
    event.type = type;
    return event;
}

EventView ContextEvent(MetricsEventType type, const ContextState& context) {
    return ContextEvent(type, context.id, context.parentId, context.flags);
}

const MetricsValue& ThreadAttributeName() {
    static const MetricsValue& name = *new const MetricsValue(u"tid");
    return name;
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const MetricsValue& madeAtLoad = ThreadAttributeName();

constinit std::atomic<bool> s_isForkedChild{false};

[[maybe_unused]] cvlsys::InForkedChild noteFork([] {
    s_isForkedChild.store(true, std::memory_order_relaxed);
});

// The contexts that are current on the thread that forked were announced with the parent's thread.
void CorrectThreadInForkedChild(ContextState& context) {
    if (!s_isForkedChild.load(std::memory_order_relaxed)) {
        return;
    }
    const uint64 announced = context.announcedThread.load(std::memory_order_relaxed);
    if (announced != 0 && announced != TSystem::ThreadID()) {
        SayThread(context, TSystem::ThreadID());
    }
}

bool TryToSayCreated(uint64 contextId, uint64 parentId) {
    EventView event = ContextEvent(MetricsEventType::CreateContext, contextId, parentId, 0);
    return Bus::TryToEmit(event);
}

// One thread at a time says what there is to say of a context.
void Note(ContextState& context, uint32 what, bool isUnsaid) noexcept {
    const uint32 others = context.unsaid.load(std::memory_order_relaxed) & ~what;
    context.unsaid.store(isUnsaid ? others | what : others, std::memory_order_relaxed);
}

// Consumers that want scopes of traced work only are to learn the thread as well, hence the flag.
bool TryToSayThread(ContextState& context, uint64 threadId) {
    if (!Bus::Admits(flagTracing)) {
        Note(context, ContextState::threadIsUnsaid, false);
        return true;
    }
    EventView event;
    event.contextId = context.id;
    event.flags = flagTracing;
    event.name = ThreadAttributeName();
    event.value = threadId;
    event.type = MetricsEventType::Attribute;
    const bool isSaid = Bus::TryToEmit(event);
    context.announcedThread.store(isSaid ? threadId : 0, std::memory_order_relaxed);
    Note(context, ContextState::threadIsUnsaid, !isSaid);
    return isSaid;
}

bool TryToSayOpened(ContextState& context) {
    bool isSaid = true;
    if (Bus::AdmitsContextEvents()) {
        EventView event = ContextEvent(MetricsEventType::OpenContext, context);
        isSaid = Bus::TryToEmit(event);
    }
    Note(context, ContextState::openingIsUnsaid, !isSaid);
    return isSaid;
}

bool TryToSayWhatIsUnsaid(ContextState& context) {
    const uint32 unsaid = context.unsaid.load(std::memory_order_relaxed);
    if ((unsaid & ContextState::openingIsUnsaid) != 0 && !TryToSayOpened(context)) {
        return false;
    }
    return (unsaid & ContextState::threadIsUnsaid) == 0 ||
           TryToSayThread(context, TSystem::ThreadID());
}

}  // namespace

bool SayCreated(uint64 contextId, uint64 parentId) {
    if (!Bus::AdmitsContextEvents()) {
        return true;
    }
    return Bus::HasRoomForContext() && TryToSayCreated(contextId, parentId);
}

void SayOpened(ContextState& context, uint64 threadId) {
    Note(context, ContextState::threadIsUnsaid, true);
    if (TryToSayOpened(context)) {
        SayThread(context, threadId);
    }
}

void SayThread(ContextState& context, uint64 threadId) {
    TryToSayThread(context, threadId);
}

void SayClosed(const ContextState& context) noexcept {
    if (Bus::AdmitsContextEvents()) {
        EventView event = ContextEvent(MetricsEventType::CloseContext, context);
        Bus::EmitFromDestructor(event, ReadClock());
    }
}

bool IsKnown(ContextState& context) {
    if (!context.isUnannounced.load(std::memory_order_relaxed)) {
        CorrectThreadInForkedChild(context);
        return context.unsaid.load(std::memory_order_relaxed) == 0 || TryToSayWhatIsUnsaid(context);
    }
    // A child's parent may have ended meanwhile, or changed: what the child inherits from it would
    // be wrong, so a child stays unknown.
    if (context.parentId != 0 || context.hasLostAttributes.load(std::memory_order_relaxed) ||
        !Bus::HasRoomForContext()) {
        return false;
    }
    if (Bus::AdmitsContextEvents() && !TryToSayCreated(context.id, context.parentId)) {
        return false;
    }
    SayOpened(context, TSystem::ThreadID());
    context.isUnannounced.store(false, std::memory_order_relaxed);
    return context.unsaid.load(std::memory_order_relaxed) == 0;
}

}  // namespace Metrics::ContextAnnouncement
