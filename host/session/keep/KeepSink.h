#pragma once

#include "TreeKeeper.h"

#include "tarn/IMetricsMonitorSink.h"
#include "tarn/Session.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <functional>
#include <memory>

namespace tarn {

/// Between a monitor and its sink: hands on the lines of the trees that are kept, and says in the
/// log what was left out. Called as sinks are; the caller of one of the others sees to it that
/// nothing is delivered meanwhile (`Metrics::CallBetweenDeliveries`).
///
/// A forked child forgets what waits, which its parent writes. Where a crash has interrupted the
/// sorting of lines, further lines are handed on as they come and those that wait are lost.
class KeepSink : public IMetricsMonitorSink {
public:
    using Clock = std::chrono::steady_clock;
    using ClockFunction = std::function<Clock::time_point()>;

    /// The log says what was left out when so much time has passed since the first line of it.
    static constexpr std::chrono::minutes reportPause{1};

    /// `now` is for tests.
    KeepSink(const KeepRules& rules,
             std::shared_ptr<IMetricsMonitorSink> next,
             ClockFunction now = Clock::now);

    /// What the next sink throws is thrown when the other lines have been handed on.
    void Log(const TLog::Event& event) override;

    /// Returns the former one, which is called for the line that it may be at, and for no other
    /// one.
    std::shared_ptr<IMetricsMonitorSink> SetNext(
        std::shared_ptr<IMetricsMonitorSink> next) noexcept;

    void SetRules(const KeepRules& rules);

    /// What comes after `Finish`.
    enum class Afterwards { SortFurtherLines, HandOnFurtherLines };

    /// Hands on what waits, and says what was left out.
    void Finish(Afterwards afterwards) noexcept;

    const TreeKeeper& GetTrees() const noexcept { return m_trees; }

private:
    class Sorting;

    void ForgetParents();
    void HandOn(const TreeKeeper::Lines& lines);
    void ReportIfDue();
    void Report();

    TreeKeeper m_trees;
    std::shared_ptr<IMetricsMonitorSink> m_next;
    const ClockFunction m_now;
    Clock::time_point m_nextReport{};  ///< while there is something to say
    uint64 m_forks;
    bool m_isSorting = false;
    bool m_isOver = false;
};

}  // namespace tarn
