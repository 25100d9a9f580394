#include "send/SendingThread.h"

#include "send/BlockedSignals.h"
#include "send/Parts.h"

#include <algorithm>
#include <exception>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tarn::otlp {

// Shared with the thread, which is left to itself if it does not end in time: a name server that
// does not answer can hold it up.
struct SendingThread::State {
    State(const Options& from, MakeTransport make)
        : options(from),
          makeTransport(std::move(make)),
          queue(options) {}

    void Account(const BatchResult& result, std::uint64_t spans);
    void DropRest(const std::string& reason);
    void TellLosses(std::unique_lock<std::mutex>& lock, bool isLast);
    bool WaitForBatch(std::unique_lock<std::mutex>& lock);
    void SendAll(BatchSender& sender);

    const Options options;
    const MakeTransport makeTransport;
    StopSignal stop;

    mutable std::mutex mutex;
    std::condition_variable added;     // or asked for something
    std::condition_variable finished;  // a batch, or the thread
    SpanQueue queue;
    Statistics statistics;
    LossReport losses;
    std::uint64_t queuedSpans = 0;    // in all
    std::uint64_t finishedSpans = 0;  // of these
    std::uint64_t flushedSpans = 0;   // for which somebody waits
    bool hasThread = false;
    bool hasEnded = false;
    bool isStopping = false;
};

SendingThread::SendingThread(const Options& options, MakeTransport makeTransport)
    : m_state(std::make_shared<State>(options, std::move(makeTransport))) {}

SendingThread::~SendingThread() {
    Shutdown(Clock::now() + m_state->options.endDeadline);
}

void SendingThread::Add(EncodedSpan&& span) noexcept {
    State& state = *m_state;
    const auto now = Clock::now();
    const std::lock_guard lock(state.mutex);
    ++state.statistics.spans;
    const bool wasEmpty = state.queue.IsEmpty();
    bool isTaken = false;
    try {
        isTaken = !state.isStopping && state.queue.Add(std::move(span), now);
        if (!isTaken && !state.isStopping) {
            state.losses.Note("no room for more; the receiver does not keep up", 1);
        }
    } catch (const std::bad_alloc&) {
        isTaken = false;
    }
    if (!isTaken) {
        ++(state.isStopping ? state.statistics.droppedAtEnd : state.statistics.droppedFull);
        return;
    }
    ++state.queuedSpans;
    if (!state.hasThread) {
        state.hasThread = StartThread();
        state.hasEnded = false;
        if (!state.hasThread) {
            state.DropRest("there is no thread to send them");
        }
    } else if (wasEmpty || state.queue.HasWholeBatch()) {
        state.added.notify_one();
    }
}

bool SendingThread::StartThread() noexcept {
    try {
        const BlockedSignals blocked;
        std::thread thread([state = m_state] { Run(state); });
        pthread_setname_np(thread.native_handle(), "tarn-otlp");
        thread.detach();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool SendingThread::Flush(Clock::time_point end) noexcept {
    State& state = *m_state;
    std::unique_lock lock(state.mutex);
    const std::uint64_t wanted = state.queuedSpans;
    state.flushedSpans = std::max(state.flushedSpans, wanted);
    state.added.notify_one();
    return state.finished.wait_until(lock, end, [&] { return state.finishedSpans >= wanted; });
}

bool SendingThread::Shutdown(Clock::time_point end) noexcept {
    // Breaking off takes a moment.
    constexpr std::chrono::milliseconds moment{200};
    State& state = *m_state;
    std::unique_lock lock(state.mutex);
    const std::uint64_t lostBefore = state.statistics.droppedAtEnd;
    state.isStopping = true;
    state.flushedSpans = state.queuedSpans;
    state.stop.StopAt(end);
    state.added.notify_one();
    const bool hasEnded = !state.hasThread || state.finished.wait_until(lock, end + moment, [&] {
        return state.hasEnded;
    });
    return hasEnded && state.statistics.droppedAtEnd == lostBefore;
}

Statistics SendingThread::GetStatistics() const noexcept {
    const std::lock_guard lock(m_state->mutex);
    Statistics statistics = m_state->statistics;
    statistics.waiting = m_state->queue.Size();
    return statistics;
}

void SendingThread::State::Account(const BatchResult& result, std::uint64_t spans) {
    statistics.requests += result.requests;
    statistics.retries += result.retries;
    std::uint64_t lost = spans;
    switch (result.kind) {
        case BatchResult::Kind::Sent:
            lost = result.rejected;
            statistics.sent += spans - lost;
            statistics.rejected += lost;
            break;
        case BatchResult::Kind::Refused:
        case BatchResult::Kind::TooLarge:
            statistics.droppedRefused += spans;
            break;
        case BatchResult::Kind::GivenUp:
            statistics.droppedGivenUp += spans;
            break;
        case BatchResult::Kind::Stopped:
            statistics.droppedAtEnd += spans;
            break;
    }
    if (lost != 0 || !result.problem.empty()) {
        losses.Note(result.problem, lost);
    }
    finishedSpans += spans;
    finished.notify_all();
}

void SendingThread::State::DropRest(const std::string& reason) {
    while (!queue.IsEmpty()) {
        const std::uint64_t spans = queue.TakeBatch().size();
        Account({.kind = BatchResult::Kind::Stopped, .problem = reason}, spans);
        queue.FinishBatch();
    }
}

// Calls the host without the lock.
void SendingThread::State::TellLosses(std::unique_lock<std::mutex>& lock, bool isLast) {
    const std::string sentence = losses.Take(Clock::now(), isLast);
    if (sentence.empty() || !options.onProblem) {
        return;
    }
    lock.unlock();
    try {
        options.onProblem(sentence);
    } catch (...) {
        // A callback that fails must not keep spans from being sent.
    }
    lock.lock();
}

// False at the end.
bool SendingThread::State::WaitForBatch(std::unique_lock<std::mutex>& lock) {
    for (;;) {
        TellLosses(lock, false);
        if (queue.IsEmpty()) {
            if (isStopping) {
                return false;
            }
            added.wait(lock);
            continue;
        }
        const auto time = queue.FirstTime() + options.batchDelay;
        if (isStopping || flushedSpans > finishedSpans || queue.HasWholeBatch() ||
            Clock::now() >= time) {
            return true;
        }
        added.wait_until(lock, time);
    }
}

void SendingThread::State::SendAll(BatchSender& sender) {
    std::unique_lock lock(mutex);
    while (WaitForBatch(lock)) {
        std::vector<EncodedSpan> batch = queue.TakeBatch();
        lock.unlock();
        std::vector<std::pair<BatchResult, std::uint64_t>> results;
        std::uint64_t rest = batch.size();
        try {
            SendInParts(sender, batch, [&](const BatchResult& result, std::uint64_t spans) {
                results.emplace_back(result, spans);
                rest -= spans;
                return true;
            });
        } catch (const std::exception& error) {
            results.emplace_back(
                BatchResult{.kind = BatchResult::Kind::GivenUp, .problem = error.what()}, rest);
        }
        batch.clear();
        lock.lock();
        for (const auto& [result, spans] : results) {
            Account(result, spans);
        }
        queue.FinishBatch();
    }
}

void SendingThread::Run(const std::shared_ptr<State>& state) {
    try {
        const std::unique_ptr<SpanEncoder> encoder = MakeEncoder(state->options.encoding);
        const std::unique_ptr<Transport> transport =
            state->makeTransport(state->options, *encoder, state->stop);
        BatchSender sender(state->options, *encoder, *transport, state->stop);
        state->SendAll(sender);
    } catch (const std::exception& error) {
        const std::lock_guard lock(state->mutex);
        state->DropRest(error.what());
        state->hasThread = false;
    }
    std::unique_lock lock(state->mutex);
    state->TellLosses(lock, true);
    state->hasEnded = true;
    state->finished.notify_all();
}

}  // namespace tarn::otlp
