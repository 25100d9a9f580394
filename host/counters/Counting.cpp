#include "Counting.h"

#include "tarn/LibraryCounters.h"

#include "cvlsys/host/ForkAwareMutex.h"
#include "cvlsys/host/ForkOrder.h"

#include <mutex>
#include <utility>

namespace tarn {
namespace {

// Guards what is below. Held for the time of one activity, or of a copy of all figures.
cvlsys::ForkAwareMutex s_mutex(cvlsys::ForkRank::Sinks);

struct Counted {
    std::shared_ptr<ActivityCounts> counts;  ///< null while nothing is counted
    RefCntPtr<MetricsMonitor> monitor;
};

// Made while the library is loaded and never destroyed: late threads trace, and are asked, while
// the process ends.
Counted& s_counted = *new Counted;

class Listener final : public IFinishedActivityListener {
public:
    void OnFinished(const FinishedActivity& activity) noexcept override {
        const std::lock_guard guard(s_mutex);
        if (const auto& counts = s_counted.counts) {
            counts->Add(activity);
        }
    }
};

constinit Listener s_listener;

void ReplaceCounts(std::shared_ptr<ActivityCounts> counts) noexcept {
    const std::lock_guard guard(s_mutex);
    s_counted.counts.swap(counts);
}

}  // namespace

void BeginCounting(MetricsMonitor& monitor, std::size_t mostNames) {
    ReplaceCounts(std::make_shared<ActivityCounts>(mostNames));
    SetLibraryCounting(true);
    monitor.SetFinishedActivityListener(&s_listener);
}

void EndCounting(MetricsMonitor& monitor) noexcept {
    monitor.SetFinishedActivityListener(nullptr);
    SetLibraryCounting(false);
    ReplaceCounts(nullptr);
}

void SetCountedMonitor(RefCntPtr<MetricsMonitor> monitor) noexcept {
    const std::lock_guard guard(s_mutex);
    std::swap(s_counted.monitor, monitor);
}

CountedFigures ReadCountedFigures() {
    CountedFigures figures;
    RefCntPtr<MetricsMonitor> monitor;
    {
        const std::lock_guard guard(s_mutex);
        figures.counts = s_counted.counts;
        monitor = s_counted.monitor;
    }
    if (monitor) {
        figures.monitor = monitor->GetStatistics();
    }
    if (figures.counts == nullptr) {
        return figures;
    }
    figures.isCounting = true;
    figures.mostNames = figures.counts->MostSeries() - 1;
    // Nothing is allocated under the lock.
    figures.activities.reserve(figures.counts->MostSeries());
    const std::lock_guard guard(s_mutex);
    for (std::size_t index = 0; index < figures.counts->Size(); ++index) {
        const ActivityCounts::Series& series = figures.counts->Get(index);
        figures.activities.push_back({&series.label, series.figures});
    }
    return figures;
}

}  // namespace tarn
