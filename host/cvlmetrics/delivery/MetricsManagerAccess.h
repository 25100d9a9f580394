#pragma once

#include "cvlmetrics/MetricsManager.h"

namespace Metrics {

/// Owns the one manager. It needs no construction and no destruction at run time, so that it can be
/// asked before anything else runs and after everything else has gone.
struct MetricsManagerAccess {
    static MetricsManager s_manager;

    static std::atomic<uint64>& ConsumerCount() noexcept { return s_manager.m_consumerCount; }
};

}  // namespace Metrics
