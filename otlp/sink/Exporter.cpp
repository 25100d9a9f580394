#include "tarn/otlp/Exporter.h"

#include "encode/LineEncoder.h"
#include "send/CurlTransport.h"
#include "send/SendingThread.h"
#include "sink/OpenReport.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/host/ForkAwareMutex.h"
#include "cvlsys/host/ForkOrder.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace tarn::otlp {

namespace {

using Clock = std::chrono::steady_clock;

// Guards what exporters keep for themselves. Held for the time of a span at most.
cvlsys::ForkAwareMutex s_mutex(cvlsys::ForkRank::Sinks);

// How often the process was forked on the way to this one.
std::atomic<std::uint64_t> s_forks{0};
const cvlsys::InForkedChild s_countForks([] { s_forks.fetch_add(1, std::memory_order_relaxed); });

TLog::EventTimePoint Now() {
    return std::chrono::time_point_cast<TLog::EventTimePoint::duration>(
        std::chrono::system_clock::now());
}

// Long enough to mean "without limit".
Clock::time_point EndOf(std::chrono::milliseconds deadline) {
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365);
    return Clock::now() + std::min(std::max(deadline, std::chrono::milliseconds(0)), longest);
}

std::string ListAsText(const std::vector<OpenActivityInfo>& open) {
    constexpr std::size_t mostNamed = 20;
    std::string text = "Open activities: " + std::to_string(open.size());
    for (std::size_t index = 0; index < open.size() && index < mostNamed; ++index) {
        char age[32];
        std::snprintf(
            age, sizeof(age), " %.1f s", static_cast<double>(open[index].age.count()) / 1e6);
        text += (index == 0 ? "; " : ", ") + open[index].name + age + " (" + open[index].id + ")";
    }
    return text + (open.size() > mostNamed ? ", ..." : "");
}

Options WithDefaultReports(Options options) {
    if (!options.onProblem) {
        options.onProblem = [](const std::string& problem) {
            TLog::Logger::Get().LogMessage(TLog::Severity::Warn, TString(problem));
        };
    }
    if (!options.onOpen) {
        options.onOpen = [](const std::vector<OpenActivityInfo>& open) {
            if (!open.empty()) {
                TLog::Logger::Get().LogMessage(TLog::Severity::Info, TString(ListAsText(open)));
            }
        };
    }
    return options;
}

// What a fork has made useless: its thread is not there, and its locks and its connection belong to
// the parent. It is left where it is.
template <class T>
void Forget(std::shared_ptr<T>& object) {
    (void)new std::shared_ptr<T>(std::move(object));
}

}  // namespace

struct __attribute__((visibility("hidden"))) Exporter::State : std::enable_shared_from_this<State> {
    explicit State(Options from) : options(WithDefaultReports(std::move(from))), lines(options) {
        lines.SetHost(0, OptTarn::GetHostName().ToUtf8());
    }

    // With the lock. The thread of this process; null before the first call.
    const std::shared_ptr<SendingThread>& Sender();

    void StartOpenReport();
    void Take(const std::string& line);
    std::vector<OpenActivityInfo> ListOpen(std::chrono::microseconds age) const;

    const Options options;
    LineEncoder lines;
    std::shared_ptr<SendingThread> sender;
    std::shared_ptr<OpenReport> openReport;
    std::uint64_t forks = 0;
    std::uint64_t unreadable = 0;
    std::uint64_t beginsLeftOut = 0;
    bool isOver = false;
};

const std::shared_ptr<SendingThread>& Exporter::State::Sender() {
    const std::uint64_t forksNow = s_forks.load(std::memory_order_relaxed);
    if (sender && forks != forksNow) {
        Forget(sender);
        Forget(openReport);
        unreadable = 0;
        beginsLeftOut = 0;
    }
    if (!sender) {
        forks = forksNow;
        sender = std::make_shared<SendingThread>(
            options, [](const Options& chosen, const SpanEncoder& encoder, StopSignal& stop) {
                return std::make_unique<CurlTransport>(chosen, encoder.ContentType(), stop);
            });
        if (options.openInterval.count() > 0 && !isOver) {
            StartOpenReport();
        }
    }
    return sender;
}

void Exporter::State::StartOpenReport() {
    try {
        openReport = std::make_shared<OpenReport>(
            options.openInterval, [state = std::weak_ptr<State>(weak_from_this())] {
                if (const auto owner = state.lock()) {
                    owner->options.onOpen(owner->ListOpen(owner->options.openInterval));
                }
            });
    } catch (const std::system_error&) {
        // The spans are sent without it.
    }
}

void Exporter::State::Take(const std::string& line) {
    EncodedSpan span;
    const std::lock_guard lock(s_mutex);
    SendingThread& thread = *Sender();
    switch (lines.Take(line, span)) {
        case LineEncoder::Result::Nothing:
            break;
        case LineEncoder::Result::BeginLeftOut:
            ++beginsLeftOut;
            break;
        case LineEncoder::Result::Span:
            thread.Add(std::move(span));
            break;
        case LineEncoder::Result::Unreadable:
            ++unreadable;
            break;
    }
}

std::vector<OpenActivityInfo> Exporter::State::ListOpen(std::chrono::microseconds age) const {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    std::vector<OpenActivityInfo> list;
    const std::lock_guard lock(s_mutex);
    for (const OpenActivity* const open : lines.Open().List()) {
        const std::chrono::microseconds openFor = now - std::chrono::microseconds(open->begin);
        if (openFor >= age) {
            list.push_back({open->name, open->id, openFor});
        }
    }
    return list;
}

class __attribute__((visibility("hidden"))) Exporter::Sink final : public IMetricsMonitorSink {
public:
    Sink(std::shared_ptr<State> state, std::unique_ptr<IMetricsMonitorSink> next)
        : m_state(std::move(state)),
          m_next(std::move(next)) {}

    void Log(const TLog::Event& event) override {
        if (m_next) {
            m_next->Log(event);
        }
        if (m_state) {
            std::string line = TLog::FormatJsonLine(TLog::Severity::Info, event, Now());
            line.reserve(line.size() + simdjson::SIMDJSON_PADDING);
            m_state->Take(line);
        }
    }

private:
    const std::shared_ptr<State> m_state;  // null if it is switched off
    const std::unique_ptr<IMetricsMonitorSink> m_next;
};

Exporter::Exporter(Options options) : m_state(std::make_shared<State>(std::move(options))) {}

Exporter::~Exporter() {
    Shutdown(m_state->options.endDeadline);
}

std::unique_ptr<IMetricsMonitorSink> Exporter::MakeSink(std::unique_ptr<IMetricsMonitorSink> next) {
    return std::make_unique<Sink>(m_state->options.isEnabled ? m_state : nullptr, std::move(next));
}

bool Exporter::Flush(std::chrono::milliseconds deadline) noexcept {
    const Clock::time_point end = EndOf(deadline);
    const bool isDelivered = Metrics::Flush(deadline);
    std::shared_ptr<SendingThread> sender;
    {
        const std::lock_guard lock(s_mutex);
        sender = m_state->Sender();
    }
    return sender->Flush(end) && isDelivered;
}

bool Exporter::Shutdown(std::chrono::milliseconds deadline) noexcept {
    const Clock::time_point end = EndOf(deadline);
    const bool isDelivered = Metrics::Flush(deadline);
    std::shared_ptr<SendingThread> sender;
    std::shared_ptr<OpenReport> openReport;
    {
        const std::lock_guard lock(s_mutex);
        m_state->isOver = true;
        sender = m_state->Sender();
        openReport = std::move(m_state->openReport);
    }
    openReport.reset();
    return sender->Shutdown(end) && isDelivered;
}

Statistics Exporter::GetStatistics() const noexcept {
    const std::lock_guard lock(s_mutex);
    Statistics statistics = m_state->Sender()->GetStatistics();
    statistics.unreadable = m_state->unreadable;
    statistics.beginsLeftOut = m_state->beginsLeftOut;
    statistics.openActivities = m_state->lines.Open().Size();
    return statistics;
}

std::vector<OpenActivityInfo> Exporter::ListOpen(std::chrono::microseconds age) const {
    return m_state->ListOpen(age);
}

}  // namespace tarn::otlp
