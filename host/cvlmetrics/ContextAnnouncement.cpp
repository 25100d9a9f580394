#include "ContextAnnouncement.h"

#include "Bus.h"
#include "EventView.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/TSystem.h"
#include "cvlsys/host/ForkOrder.h"

#include <atomic>
#include <utility>

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

void EmitCreated(uint64 contextId, uint64 parentId) {
    EventView event = ContextEvent(MetricsEventType::CreateContext, contextId, parentId, 0);
    Bus::Emit(event);
}

}  // namespace

bool SayCreated(uint64 contextId, uint64 parentId) {
    if (!Bus::AdmitsContextEvents()) {
        return true;
    }
    if (!Bus::HasRoomForContext()) {
        return false;
    }
    EmitCreated(contextId, parentId);
    return true;
}

void SayOpened(ContextState& context, uint64 threadId) {
    if (Bus::AdmitsContextEvents()) {
        EventView event = ContextEvent(MetricsEventType::OpenContext, context);
        Bus::Emit(event);
    }
    SayThread(context, threadId);
}

// Consumers that want scopes of traced work only are to learn the thread as well, hence the flag.
void SayThread(ContextState& context, uint64 threadId) {
    if (!Bus::Admits(flagTracing)) {
        return;
    }
    EventView event;
    event.contextId = context.id;
    event.flags = flagTracing;
    event.name = ThreadAttributeName();
    event.value = threadId;
    event.type = MetricsEventType::Attribute;
    Bus::Emit(event);
    context.announcedThread.store(threadId, std::memory_order_relaxed);
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
        return true;
    }
    // A child's parent may have ended meanwhile, or changed: what the child inherits from it would
    // be wrong, so a child stays unknown.
    if (context.parentId != 0 || context.hasLostAttributes.load(std::memory_order_relaxed) ||
        !Bus::HasRoomForContext()) {
        return false;
    }
    if (Bus::AdmitsContextEvents()) {
        EmitCreated(context.id, context.parentId);
    }
    SayOpened(context, TSystem::ThreadID());
    context.isUnannounced.store(false, std::memory_order_relaxed);
    return true;
}

}  // namespace Metrics::ContextAnnouncement
