#include "KeepSink.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/Silence.h"
#include "cvlsys/host/ForkOrder.h"

#include <atomic>
#include <exception>
#include <utility>

namespace tarn {
namespace {

// How often the process was forked on the way to this one.
std::atomic<uint64> s_forks{0};
const cvlsys::InForkedChild s_countForks([] { s_forks.fetch_add(1, std::memory_order_relaxed); });

uint64 CountForks() noexcept {
    return s_forks.load(std::memory_order_relaxed);
}

}  // namespace

/// The trees are being changed; a crash may leave them like that.
class KeepSink::Sorting {
public:
    explicit Sorting(KeepSink& sink) noexcept : m_sink(sink) {
        m_sink.m_isSorting = true;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    ~Sorting() {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        m_sink.m_isSorting = false;
    }

    Sorting(const Sorting&) = delete;
    Sorting& operator=(const Sorting&) = delete;

private:
    KeepSink& m_sink;
};

KeepSink::KeepSink(const KeepRules& rules,
                   std::shared_ptr<IMetricsMonitorSink> next,
                   ClockFunction now)
    : m_next(std::move(next)),
      m_now(std::move(now)),
      m_forks(CountForks()) {
    TreeKeeper::Lines none;
    m_trees.SetRules(rules, none);
}

void KeepSink::Log(const TLog::Event& event) {
    // Lines of another process's work are dropped further on.
    if (m_isOver || m_isSorting || TLog::Silence::IsOnThisThread()) {
        m_next->Log(event);
        return;
    }
    TreeKeeper::Lines lines;
    {
        const Sorting sorting(*this);
        ForgetParents();
        m_trees.Take(event, lines);
    }
    HandOn(lines);
    ReportIfDue();
}

std::shared_ptr<IMetricsMonitorSink> KeepSink::SetNext(
    std::shared_ptr<IMetricsMonitorSink> next) noexcept {
    return std::exchange(m_next, std::move(next));
}

void KeepSink::SetRules(const KeepRules& rules) {
    if (m_isSorting) {
        return;
    }
    TreeKeeper::Lines lines;
    {
        const Sorting sorting(*this);
        ForgetParents();
        m_trees.SetRules(rules, lines);
    }
    HandOn(lines);
}

void KeepSink::Finish(Afterwards afterwards) noexcept {
    if (m_isSorting || m_isOver) {
        return;
    }
    m_isOver = afterwards == Afterwards::HandOnFurtherLines;
    try {
        TreeKeeper::Lines lines;
        {
            const Sorting sorting(*this);
            ForgetParents();
            m_trees.GiveUpWaiting(lines);
        }
        HandOn(lines);
    } catch (...) {  // NOLINT(bugprone-empty-catch): the counts are told all the same
    }
    try {
        Report();
    } catch (...) {  // NOLINT(bugprone-empty-catch): without memory there is no report
    }
}

void KeepSink::ForgetParents() {
    if (const uint64 forks = CountForks(); forks != m_forks) {
        m_forks = forks;
        m_trees.ForgetWaiting();
        m_nextReport = {};
    }
}

// A sink may fork, replace itself, and hand lines to the monitor.
void KeepSink::HandOn(const TreeKeeper::Lines& lines) {
    const uint64 forks = CountForks();
    std::exception_ptr first;
    for (const TLog::Event& line : lines) {
        const std::shared_ptr<IMetricsMonitorSink> next = m_next;
        try {
            next->Log(line);
        } catch (...) {
            first = first != nullptr ? first : std::current_exception();
        }
        if (CountForks() != forks) {
            return;  // the parent goes on with them
        }
    }
    if (first != nullptr) {
        std::rethrow_exception(first);
    }
}

void KeepSink::ReportIfDue() {
    if (m_trees.GetLeftOut().IsEmpty()) {
        return;
    }
    const Clock::time_point now = m_now();
    if (m_nextReport == Clock::time_point()) {
        m_nextReport = now + reportPause;
    } else if (now >= m_nextReport) {
        Report();
    }
}

void KeepSink::Report() {
    TLog::Logger& logger = TLog::Logger::Get();
    LeftOut& leftOut = m_trees.GetLeftOut();
    if (leftOut.IsEmpty() || !logger.IsEnabled(TLog::Info)) {
        return;
    }
    const TLog::Event event = leftOut.ToEvent(LatenessOf(m_trees.GetRules()));
    leftOut = LeftOut();
    m_nextReport = {};
    logger.Log(TLog::Info, event);
}

}  // namespace tarn
