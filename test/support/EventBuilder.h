#pragma once

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

namespace tarn::test {

/// Builds events as the bus delivers them:
///
///     EventBuilder::OpenScope(7, "query").In(rootContext).With({{"rows", 12}}).AtMilliseconds(5)
///
/// What is not said is zero or empty, except that scope and value events carry the tracing bit. A
/// value that converts to the event.
class EventBuilder {
public:
    static EventBuilder CreateContext(uint64 id, uint64 parent = 0);
    static EventBuilder OpenContext(uint64 id);
    static EventBuilder CloseContext(uint64 id);

    static EventBuilder OpenScope(uint64 id, const Metrics::MetricsValue& name);
    static EventBuilder CloseScope(uint64 id, const Metrics::MetricsValue& name = {});

    /// One value for a scope.
    static EventBuilder ScopeValue(uint64 id,
                                   const Metrics::MetricsValue& name,
                                   const Metrics::MetricsValue& value);
    /// A named list for a scope.
    static EventBuilder ScopePairs(uint64 id,
                                   const Metrics::MetricsValue& listName,
                                   const Metrics::NameValueList& pairs);
    static EventBuilder Supplement(uint64 id, const Metrics::NameValueList& pairs);

    static EventBuilder ContextValue(uint64 contextId,
                                     const Metrics::MetricsValue& name,
                                     const Metrics::MetricsValue& value);
    static EventBuilder ContextPairs(uint64 contextId,
                                     const Metrics::MetricsValue& listName,
                                     const Metrics::NameValueList& pairs);

    static EventBuilder PostClose(uint64 contextId, const Metrics::MetricsValue& action = 0);

    EventBuilder& OfType(uint32 type);
    EventBuilder& In(uint64 contextId);
    EventBuilder& With(Metrics::NameValueList pairs);
    EventBuilder& Flags(uint64 flags);

    /// Adds the bits of a transparent or of an untracked scope.
    EventBuilder& Transparent();
    EventBuilder& Untracked();

    /// Of a scope that the host opened itself: no bits at all.
    EventBuilder& FromHost();

    EventBuilder& At(int64 nanoseconds);
    EventBuilder& AtMilliseconds(int64 milliseconds);
    EventBuilder& Wall(uint64 seconds, uint32 micros);

    // A builder is accepted as an event.
    // NOLINTNEXTLINE(google-explicit-constructor): stands for itself in lists
    operator const Metrics::MetricsEvent&() const { return m_event; }

private:
    EventBuilder(Metrics::MetricsEventType type, uint64 id, uint64 contextId, uint64 flags);

    Metrics::MetricsEvent m_event;
};

}  // namespace tarn::test
