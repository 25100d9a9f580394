#pragma once

#include "RequestContextAttributes.h"
#include "ScopeState.h"

#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

/// What the monitor knows of one context, from its creation to its close.
struct MetricsMonitor::ContextInfo {
    /// Attributes that hold for a while, by name; a later layer covers an earlier one.
    using Layer = std::unordered_map<TString, Metrics::MetricsValue>;
    using Layers = std::vector<Layer>;

    uint64 parentId = 0;  ///< 0 for a root

    /// Of the request that this context serves; null before there is one.
    std::shared_ptr<tarn::RequestContextAttributes> request;

    // Ids of scopes, the innermost last. An id may have lost its record by an out-of-order close.
    std::deque<uint64> openScopes;
    std::deque<uint64> openTracingScopes;

    Metrics::NameValueList pendingAttributes;  ///< wait for a request to be merged into
    Metrics::NameValueList ownAttributes;      ///< "cid" and "tid"

    /// Shared with the parent; whoever appends takes a copy first.
    std::shared_ptr<Layers> layers;

    /// Layers on top of these that could not be made. Each still has its removal to come.
    uint64 missingLayers = 0;

    ScopeState baseState;  ///< what the first scope inherits
    bool isOpen = false;
};
