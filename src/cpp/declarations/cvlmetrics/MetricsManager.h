#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <atomic>

namespace Metrics {

/// The calling thread's side of the bus.
class CVLMETRICS_API MetricsThreadContext {
public:
    /// The metrics context that is current on this thread; 0 when there is none, and always 0
    /// while the thread is being torn down.
    uint64 GetMetricsContextId() const noexcept;
};

/// The process's event bus. There is one; it lives as long as the process. Any thread may call
/// any operation at any time.
class CVLMETRICS_API MetricsManager {
public:
    static MetricsManager& GetInstance() noexcept;

    /// Subscribes `listener` to events whose flags share a bit with `bits`, and to context
    /// events; with `flag` also to events that carry none of `bits`. A listener that is
    /// subscribed already gets the new bits and flag. False for a null listener.
    bool AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool flag);

    /// After it returns the listener is not called any more; called from within a delivery, that
    /// holds once the current call of the listener has returned. False when it was not subscribed.
    bool RemoveConsumer(const RefCntPtr<IMetricsListener>& listener);

    MetricsThreadContext& GetThreadContext() noexcept;

    /// How many listeners are subscribed.
    uint64 GetConsumerCount() const noexcept {
        return m_consumerCount.load(std::memory_order_relaxed);
    }

    MetricsManager(const MetricsManager&) = delete;
    MetricsManager& operator=(const MetricsManager&) = delete;

private:
    friend struct MetricsManagerAccess;
    constexpr MetricsManager() noexcept = default;
    ~MetricsManager() = default;

    // The first member: whether anybody listens is read from the instance's first word.
    std::atomic<uint64> m_consumerCount{0};
};

/// Whether an event with these flag bits would reach any listener. Costs two loads.
CVLMETRICS_API bool TestBits(uint64 bits) noexcept;

/// As `TestBits`, and the calling thread has a current metrics context.
CVLMETRICS_API bool TestBitsAndContext(uint64 bits) noexcept;

/// Emits one attribute on the calling thread's current context; nothing without one. This is how
/// a host gives a context its "pid", "rid", "sid", "user", "site" and "req-desc".
CVLMETRICS_API void AttributeImpl(MetricsValue&& name, MetricsValue&& value, uint64 bits);

/// Emits a named list of attributes on the calling thread's current context; nothing without one.
CVLMETRICS_API void MultiAttributeImpl(MetricsValue&& name, NameValueList&& pairs, uint64 bits);

}  // namespace Metrics
