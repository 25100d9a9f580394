#pragma once

#include "ContextInfo.h"
#include "MonitorNames.h"
#include "OpenWork.h"
#include "RecordTable.h"
#include "ScopeState.h"

#include "tarn/MetricsMonitor.h"

#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <utility>

/// All that a monitor holds. References to contexts and scopes stay valid until these are
/// forgotten.
struct MetricsMonitor::Records {
    explicit Records(uint64 contextId) : rootContextId(contextId) {}

    const uint64 rootContextId;
    tarn::RecordTable<ContextInfo> contexts;
    tarn::RecordTable<ScopeState> scopes;
    tarn::MonitorNames names;
    std::unique_ptr<IMetricsMonitorSink> sink;
    std::unique_ptr<IMetricsMonitorUUID> uuidGenerator;
    bool testEnabled = false;

    /// The memory that the next scope gathers its opening attributes in; while it is open it needs
    /// none.
    ScopeState::Attributes spareAttributes;

    /// What a crash interrupts.
    const tarn::OpenWork openWork{scopes};

    const ContextInfo* FindContext(uint64 contextId) const { return contexts.Find(contextId); }

    ContextInfo* FindContext(uint64 contextId) { return contexts.Find(contextId); }

    ScopeState* FindScope(uint64 scopeId) { return scopes.Find(scopeId); }

    /// The next scope uses the record's memory.
    void ForgetScope(uint64 scopeId) noexcept {
        auto node = scopes.TakeOut(scopeId);
        if (!node.empty()) {
            node.mapped().LetGo();
            scopes.KeepSpare(std::move(node));
        }
    }
};
