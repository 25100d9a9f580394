#pragma once

#include "ContextInfo.h"
#include "MonitorNames.h"
#include "ScopeState.h"

#include "tarn/MetricsMonitor.h"

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <unordered_map>

namespace tarn {

/// 64-bit FNV-1a over the eight bytes of an id, lowest byte first.
struct IdHash {
    std::size_t operator()(uint64 id) const noexcept {
        uint64 hash = 0xCBF29CE484222325;
        for (int shift = 0; shift < 64; shift += 8) {
            hash = (hash ^ ((id >> shift) & 0xFF)) * 0x100000001B3;
        }
        return hash;
    }
};

}  // namespace tarn

/// All that a monitor holds. References to entries of the two maps stay valid while others are
/// inserted.
struct MetricsMonitor::Records {
    explicit Records(uint64 contextId) : rootContextId(contextId) {}

    const ContextInfo* FindContext(uint64 contextId) const {
        const auto found = contexts.find(contextId);
        return found == contexts.end() ? nullptr : &found->second;
    }

    ContextInfo* FindContext(uint64 contextId) {
        const auto found = contexts.find(contextId);
        return found == contexts.end() ? nullptr : &found->second;
    }

    ScopeState* FindScope(uint64 scopeId) {
        const auto found = scopes.find(scopeId);
        return found == scopes.end() ? nullptr : &found->second;
    }

    const uint64 rootContextId;
    std::unordered_map<uint64, ContextInfo, tarn::IdHash> contexts;
    std::unordered_map<uint64, ScopeState, tarn::IdHash> scopes;
    const tarn::MonitorNames names;
    std::unique_ptr<IMetricsMonitorSink> sink;
    std::unique_ptr<IMetricsMonitorUUID> uuidGenerator;
    bool testEnabled = false;
};
