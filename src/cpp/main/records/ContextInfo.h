#pragma once

#include "OpenScopes.h"
#include "RequestContextAttributes.h"
#include "ScopeState.h"
#include "SharedStack.h"
#include "ThreadIds.h"

#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <deque>
#include <memory>
#include <unordered_map>

/// What the monitor knows of one context, from its creation to its close.
struct MetricsMonitor::ContextInfo {
    /// Attributes that hold for a while, by name; a layer covers those below it.
    using Layer = std::unordered_map<TString, Metrics::MetricsValue>;
    using Layers = tarn::SharedStack<Layer>;

    uint64 parentId = 0;  ///< 0 for a root

    /// Of the request that this context serves; null before there is one.
    std::shared_ptr<tarn::RequestContextAttributes> request;

    tarn::OpenScopes openScopes;
    /// The innermost last. An id may have lost its record by an out-of-order close.
    std::deque<uint64> openTracingScopes;

    Metrics::NameValueList pendingAttributes;  ///< wait for a request to be merged into

    /// The threads that the context has been on, each once however often it comes back.
    tarn::ThreadIds threads;
    uint64 lastThread = 0;  ///< the last of them, if there are any

    /// Shared with the parent: what is removed is gone for both. A new layer is put onto a copy.
    std::shared_ptr<Layers> layers;

    /// Layers on top of these that could not be made. Each still has its removal to come.
    uint64 missingLayers = 0;

    ScopeState baseState;  ///< what the first scope inherits
    bool isOpen = false;
};
