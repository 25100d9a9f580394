#pragma once

#include "ActivityCounts.h"

#include "tarn/MetricsMonitor.h"

#include "cvlsys/RefCntObject.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tarn {

/// Begins to count what `monitor` hears, from nothing: `mostNames` names have counts of their own.
/// Throws `std::bad_alloc`, and then changes nothing. One thread at a time begins and ends.
void BeginCounting(MetricsMonitor& monitor, std::size_t mostNames);

/// What has been counted is forgotten.
void EndCounting(MetricsMonitor& monitor) noexcept;

/// The monitor whose own statistics are told; null for none.
void SetCountedMonitor(RefCntPtr<MetricsMonitor> monitor) noexcept;

/// What there is to tell of this process.
struct CountedFigures {
    struct Activities {
        const std::string* label;
        ActivityFigures figures;
    };

    bool isCounting = false;
    std::vector<Activities> activities;  ///< all of one moment
    std::size_t mostNames = 0;
    MetricsMonitor::Statistics monitor;

    /// Keeps the labels.
    std::shared_ptr<const ActivityCounts> counts;
};

/// Throws `std::bad_alloc`.
CountedFigures ReadCountedFigures();

}  // namespace tarn
