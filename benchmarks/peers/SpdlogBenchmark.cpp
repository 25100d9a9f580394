// What does spdlog take for the same bytes: two lines for each scope from ready texts, into which
// one random id is written? Synchronously it collects a few lines before it hands them to the
// system; once more with a flush after each line, which is when they are in the page cache.

#include "peers/RandomId.h"
#include "peers/ReadyLines.h"
#include "support/Measure.h"
#include "support/OutputFile.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

/// Tells when a flush has come through spdlog's queue. It takes no lines.
class FlushSignal : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    FlushSignal() { set_level(spdlog::level::off); }

    std::uint64_t Flushes() const noexcept { return m_flushes.load(); }

    void WaitFor(std::uint64_t flushes) const noexcept {
        for (std::uint64_t seen = m_flushes.load(); seen < flushes; seen = m_flushes.load()) {
            m_flushes.wait(seen);
        }
    }

private:
    void sink_it_(const spdlog::details::log_msg& /*message*/) override {}

    void flush_() override {
        m_flushes.fetch_add(1);
        m_flushes.notify_all();
    }

    std::atomic<std::uint64_t> m_flushes{0};
};

/// A logger to a file, for one run of a benchmark.
class Peer {
public:
    Peer(bool isAsynchronous, int threads)
        : m_lines(MakeReadyLines("")),
          m_threads(threads),
          m_signal(std::make_shared<FlushSignal>()) {
        const spdlog::sinks_init_list sinks{
            std::make_shared<spdlog::sinks::basic_file_sink_mt>(m_file.Path().string()), m_signal};
        if (isAsynchronous) {
            // The queue's default size holds the batches of four threads.
            m_pool = std::make_shared<spdlog::details::thread_pool>(
                spdlog::details::default_async_q_size, 1);
            m_logger = std::make_shared<spdlog::async_logger>("peer", sinks, m_pool);
        } else {
            m_logger = std::make_shared<spdlog::logger>("peer", sinks);
        }
        m_logger->set_pattern("%v");
    }

    const ReadyLines& Lines() const noexcept { return m_lines; }

    spdlog::logger& Logger() noexcept { return *m_logger; }

    EmittingThreads& Threads() noexcept { return m_threads; }

    /// Returns when all lines so far are handed to the system. One thread calls it.
    void Deliver() {
        const std::uint64_t flushesBefore = m_signal->Flushes();
        m_logger->flush();
        m_signal->WaitFor(flushesBefore + 1);
    }

    void ExpectScopes(benchmark::State& state, std::uint64_t scopes) {
        m_threads.Meet();
        if (state.thread_index() == 0) {
            Deliver();
            const std::uint64_t all = scopes * static_cast<std::uint64_t>(state.threads());
            Expect(state, "lines", 2 * all, m_file.Lines());
            Expect(state, "bytes", (m_lines.Bytes() + 2) * all, m_file.Bytes());
            ReportForAll(state,
                         "file_bytes",
                         static_cast<double>(m_file.Bytes()) / static_cast<double>(all));
        }
        m_threads.Meet();
    }

private:
    ReadyLines m_lines;
    EmittingThreads m_threads;
    OutputFile m_file;
    std::shared_ptr<FlushSignal> m_signal;
    std::shared_ptr<spdlog::details::thread_pool> m_pool;
    std::shared_ptr<spdlog::logger> m_logger;
};

std::optional<Peer> g_peer;

void StartSynchronous(const benchmark::State& state) {
    g_peer.emplace(false, state.threads());
}

void StartFlushing(const benchmark::State& state) {
    StartSynchronous(state);
    g_peer->Logger().flush_on(spdlog::level::info);
}

void StartAsynchronous(const benchmark::State& state) {
    g_peer.emplace(true, state.threads());
}

void Stop(const benchmark::State& /*state*/) {
    g_peer.reset();
}

/// What one thread does for a scope.
class Writer {
public:
    explicit Writer(Peer& peer) : m_logger(peer.Logger()), m_lines(peer.Lines()) {}

    void operator()() {
        const RandomId id = m_ids.Next();
        Write(m_lines.begin, id);
        Write(m_lines.end, id);
    }

private:
    void Write(ReadyLine& line, const RandomId& id) {
        line.SetId(id);
        m_logger.log(spdlog::level::info,
                     spdlog::string_view_t(line.Text().data(), line.Text().size()));
    }

    spdlog::logger& m_logger;
    ReadyLines m_lines;
    RandomIds m_ids;
};

void SpdlogSynchronous(benchmark::State& state) {
    Writer write(*g_peer);

    const std::uint64_t scopes = MeasureDirect(
        state,
        g_peer->Threads(),
        scopesInBatch,
        [&] { write(); },
        [] { g_peer->Logger().flush(); });

    g_peer->ExpectScopes(state, scopes);
}

void SpdlogAsynchronous(benchmark::State& state) {
    Writer write(*g_peer);

    const std::uint64_t scopes = MeasureHandedOver(
        state,
        g_peer->Threads(),
        scopesInBatch,
        [] {},
        [&] { write(); },
        [] { g_peer->Deliver(); });

    g_peer->ExpectScopes(state, scopes);
}

void WithThreads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Teardown(Stop)->Threads(1)->Threads(2)->UseManualTime();
}

BENCHMARK(SpdlogSynchronous)->Setup(StartSynchronous)->Apply(WithThreads);
BENCHMARK(SpdlogSynchronous)
    ->Name("SpdlogSynchronousFlushing")
    ->Setup(StartFlushing)
    ->Apply(WithThreads);
BENCHMARK(SpdlogAsynchronous)->Setup(StartAsynchronous)->Apply(WithThreads);

}  // namespace
}  // namespace benchmarks
