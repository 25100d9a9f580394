#pragma once

#include "ActivityEventInput.h"
#include "ActivityLogEventProducer.h"
#include "ContextInfo.h"
#include "Limit.h"
#include "MonitorNames.h"
#include "OpenScopes.h"
#include "OpenWork.h"
#include "RecordTable.h"
#include "ScopeState.h"
#include "SinkSlot.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/MonitorUUIDGenerator.h"

#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <memory>
#include <utility>

/// All that a monitor holds. References to contexts and scopes stay valid until these are
/// forgotten.
struct MetricsMonitor::Records {
    explicit Records(uint64 contextId)
        : rootContextId(contextId),
          sink(std::make_unique<LogSink>()),
          uuidGenerator(std::make_unique<MonitorUUIDGenerator>()) {}

    const uint64 rootContextId;
    tarn::RecordTable<ContextInfo> contexts;
    tarn::RecordTable<ScopeState> scopes;
    tarn::PassedOverIds passedOver;
    tarn::MonitorNames names;
    tarn::ActivityLogEventProducer producer;

    /// Of the scope that is just opening, as long as its event is lent.
    tarn::OpeningAttributes opening;

    /// What a crash interrupts.
    const tarn::OpenWork openWork{scopes};

    bool testEnabled = false;

    /// One warning is enough: a timer opens its context again and again.
    bool hasWarnedOfUselessOpening = false;

    std::atomic<bool> hasAdditionalFields{false};

    /// The host's, and null where nobody counts.
    std::atomic<tarn::IFinishedActivityListener*> finishedListener{nullptr};

    /// What requests begin with. It does not change once it is published.
    Metrics::NameValueList requestDefaults;
    bool assignRequestIds = false;
    std::atomic<bool> hasRequestDefaults{false};

    tarn::Limit attributesPerScope{Limits().attributesPerScope,
                                   u"A scope has more than %1 attributes. Further ones are left "
                                   u"out, in this scope and in others."};
    tarn::Limit nestedScopes{Limits().nestedScopes,
                             u"More than %1 scopes are open within each other. Those further in "
                             u"are left out, in this context and in others."};
    tarn::Limit pendingAttributes{
        Limits().pendingAttributes,
        u"A context without a request has got more than %1 attributes. Further ones are left out, "
        u"in this context and in others."};

    // The host's objects go before the records, the generator first.
    tarn::SinkSlot sink;
    std::unique_ptr<IMetricsMonitorUUID> uuidGenerator;

    /// Changes nothing, unlike the one below.
    const ContextInfo* FindContext(uint64 contextId) const { return contexts.Find(contextId); }

    ContextInfo* FindContext(uint64 contextId) { return contexts.Find(contextId); }

    ScopeState* FindScope(uint64 scopeId) { return scopes.Find(scopeId); }

    /// The next scope uses the record's memory.
    void ForgetScope(uint64 scopeId) noexcept {
        auto node = scopes.TakeOut(scopeId);
        if (!node.empty()) {
            node.mapped().ReleaseMemory();
            scopes.KeepSpare(std::move(node));
        }
    }
};
