// What is the least that the same work can cost, done by hand for this one scope? A place on the
// thread's stack, a random id, the three texts, a clock read at each end, and the same bytes into a
// buffer that is written in blocks.

#include "peers/RandomId.h"
#include "peers/ReadyLines.h"
#include "support/Measure.h"
#include "support/OutputFile.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

constexpr std::size_t blockBytes = std::size_t{64} << 10;
constexpr std::size_t textBytes = 16;

struct Times {
    std::int64_t wallMicroseconds = 0;
    std::int64_t cpuMicroseconds = 0;
};

// The clock first: without it the kernel says what the times were some milliseconds ago.
std::int64_t ProcessorMicroseconds() noexcept {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1'000'000 + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
}

Times Now(bool withCpu) noexcept {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return {time.tv_sec * 1'000'000 + time.tv_nsec / 1000, withCpu ? ProcessorMicroseconds() : 0};
}

/// A scope as it lies on the thread's stack of open ones.
struct Frame {
    RandomId id;
    std::array<std::array<char, textBytes>, 3> texts{};
    Times begin;
    Times end;
};

void CopyText(std::array<char, textBytes>& to, std::string_view text) noexcept {
    std::memcpy(to.data(), text.data(), text.size());
}

/// The part that cannot be left out even when nobody listens.
class OpenFrames {
public:
    explicit OpenFrames(bool tracksCpu) : m_tracksCpu(tracksCpu) { m_frames.reserve(depthAtMost); }

    Frame& Open() noexcept {
        Frame& frame = m_frames.emplace_back();
        frame.id = m_ids.Next();
        CopyText(frame.texts[0], "packages");
        CopyText(frame.texts[1], "by name");
        CopyText(frame.texts[2], "browser");
        frame.begin = Now(m_tracksCpu);
        benchmark::DoNotOptimize(frame);
        return frame;
    }

    void StampEnd(Frame& frame) const noexcept { frame.end = Now(m_tracksCpu); }

    void Close() noexcept { m_frames.pop_back(); }

private:
    static constexpr std::size_t depthAtMost = 64;

    bool m_tracksCpu;
    RandomIds m_ids;
    std::vector<Frame> m_frames;
};

/// Lines that are collected and written in blocks. Each writing thread has one; blocks end
/// with a line, so several may go to one file.
class BlockWriter {
public:
    explicit BlockWriter(const std::filesystem::path& path)
        : m_descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
        if (m_descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), path.string());
        }
    }

    ~BlockWriter() { close(m_descriptor); }

    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    void Append(std::string_view line) {
        if (m_used + line.size() > m_block.size()) {
            Flush();
        }
        std::memcpy(m_block.data() + m_used, line.data(), line.size());
        m_used += line.size();
    }

    void Flush() {
        if (m_used > 0 &&
            write(m_descriptor, m_block.data(), m_used) != static_cast<ssize_t>(m_used)) {
            throw std::system_error(errno, std::generic_category(), "a block was not written");
        }
        m_used = 0;
    }

private:
    int m_descriptor;
    std::vector<char> m_block = std::vector<char>(blockBytes);
    std::size_t m_used = 0;
};

/// Both lines of scopes.
class LineWriter {
public:
    LineWriter(const ReadyLines& lines, const std::filesystem::path& path)
        : m_lines(lines),
          m_writer(path) {}

    void Begin(const Frame& frame) { Write(m_lines.begin, frame.id, frame.begin); }

    void End(const Frame& frame) { Write(m_lines.end, frame.id, frame.end); }

    void Flush() { m_writer.Flush(); }

private:
    void Write(ReadyLine& line, const RandomId& id, const Times& time) {
        line.SetId(id);
        line.SetMicroseconds(static_cast<unsigned>(time.wallMicroseconds % 1'000'000));
        m_writer.Append(line.Text());
    }

    ReadyLines m_lines;
    BlockWriter m_writer;
};

/// Frames of one thread on their way to the thread that writes them.
class Ring {
public:
    /// The caller knows that there is room.
    void Put(const Frame& frame) noexcept {
        const std::size_t place = m_written.load(std::memory_order_relaxed);
        m_frames[place % m_frames.size()] = frame;
        m_written.store(place + 1, std::memory_order_release);
    }

    template <class Take>
    void TakeAll(Take take) {
        const std::size_t written = m_written.load(std::memory_order_acquire);
        for (; m_read < written; ++m_read) {
            take(m_frames[m_read % m_frames.size()]);
        }
    }

private:
    std::vector<Frame> m_frames = std::vector<Frame>(4 * scopesInBatch);
    alignas(64) std::atomic<std::size_t> m_written{0};
    alignas(64) std::size_t m_read = 0;
};

/// One run of a benchmark.
class Floor {
public:
    explicit Floor(int threads)
        : m_lines(MakeReadyLines("\n")),
          m_threads(threads),
          m_rings(static_cast<std::size_t>(threads)) {}

    ~Floor() {
        if (m_thread.joinable()) {
            Ask([this] { m_stops = true; });
            m_thread.join();
        }
    }

    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;

    void StartWriting() {
        m_thread = std::thread([this] { WriteRings(); });
    }

    LineWriter MakeWriter() const { return {m_lines, m_file.Path()}; }

    Ring& RingOf(const benchmark::State& state) {
        return m_rings[static_cast<std::size_t>(state.thread_index())];
    }

    EmittingThreads& Threads() noexcept { return m_threads; }

    /// Returns when all frames so far are in the file.
    void Deliver() {
        std::uint64_t mine = 0;
        Ask([&] { mine = ++m_flushesWanted; });
        std::unique_lock lock(m_mutex);
        m_isDone.wait(lock, [&] { return m_flushesDone >= mine; });
    }

    void ExpectScopes(benchmark::State& state, std::uint64_t scopes) {
        m_threads.Meet();
        if (state.thread_index() == 0) {
            const std::uint64_t all = scopes * static_cast<std::uint64_t>(state.threads());
            Expect(state, "lines", 2 * all, m_file.Lines());
            Expect(state, "bytes", m_lines.Bytes() * all, m_file.Bytes());
            ReportForAll(state,
                         "file_bytes",
                         static_cast<double>(m_file.Bytes()) / static_cast<double>(all));
        }
        m_threads.Meet();
    }

private:
    template <class Change>
    void Ask(Change change) {
        const std::lock_guard lock(m_mutex);
        change();
        m_isAsked.notify_one();
    }

    // Looks by itself every millisecond, so that emitting threads need not wake it.
    void WriteRings() {
        constexpr std::chrono::milliseconds nap{1};
        LineWriter writer = MakeWriter();
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_isAsked.wait_for(
                lock, nap, [this] { return m_stops || m_flushesDone < m_flushesWanted; });
            const std::uint64_t wanted = m_flushesWanted;
            const bool stops = m_stops;
            lock.unlock();
            for (Ring& ring : m_rings) {
                ring.TakeAll([&](const Frame& frame) {
                    writer.Begin(frame);
                    writer.End(frame);
                });
            }
            writer.Flush();
            lock.lock();
            m_flushesDone = wanted;
            m_isDone.notify_all();
            if (stops) {
                return;
            }
        }
    }

    ReadyLines m_lines;
    OutputFile m_file;
    EmittingThreads m_threads;
    std::vector<Ring> m_rings;

    std::mutex m_mutex;
    std::condition_variable m_isAsked;
    std::condition_variable m_isDone;
    bool m_stops = false;
    std::uint64_t m_flushesWanted = 0;
    std::uint64_t m_flushesDone = 0;
    std::thread m_thread;
};

std::optional<Floor> g_floor;

void Start(const benchmark::State& state) {
    g_floor.emplace(state.threads());
}

void StartAsynchronous(const benchmark::State& state) {
    g_floor.emplace(state.threads());
    g_floor->StartWriting();
}

void Stop(const benchmark::State& /*state*/) {
    g_floor.reset();
}

bool TracksCpu(const benchmark::State& state) {
    return state.range(0) != 0;
}

void FloorNobodyListens(benchmark::State& state) {
    OpenFrames open(TracksCpu(state));
    bool isMonotonic = true;

    MeasureDirect(
        state,
        g_floor->Threads(),
        cheapScopesInBatch,
        [&] {
            Frame& frame = open.Open();
            open.StampEnd(frame);
            isMonotonic = isMonotonic && frame.end.cpuMicroseconds >= frame.begin.cpuMicroseconds;
            open.Close();
        },
        [] {});

    if (!isMonotonic) {
        state.SkipWithError("processor time ran backwards");
    }
}

void FloorSynchronous(benchmark::State& state) {
    OpenFrames open(TracksCpu(state));
    LineWriter writer = g_floor->MakeWriter();

    const std::uint64_t scopes = MeasureDirect(
        state,
        g_floor->Threads(),
        scopesInBatch,
        [&] {
            Frame& frame = open.Open();
            writer.Begin(frame);
            open.StampEnd(frame);
            writer.End(frame);
            open.Close();
        },
        [&] { writer.Flush(); });

    g_floor->ExpectScopes(state, scopes);
}

void FloorAsynchronous(benchmark::State& state) {
    OpenFrames open(TracksCpu(state));
    Ring& ring = g_floor->RingOf(state);

    const std::uint64_t scopes = MeasureHandedOver(
        state,
        g_floor->Threads(),
        scopesInBatch,
        [] {},
        [&] {
            Frame& frame = open.Open();
            open.StampEnd(frame);
            ring.Put(frame);
            open.Close();
        },
        [] { g_floor->Deliver(); });

    g_floor->ExpectScopes(state, scopes);
}

void WithCpuAndThreads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Teardown(Stop)
        ->ArgName("cpu")
        ->Arg(0)
        ->Arg(1)
        ->Threads(1)
        ->Threads(2)
        ->UseManualTime();
}

BENCHMARK(FloorNobodyListens)->Setup(Start)->Apply(WithCpuAndThreads);
BENCHMARK(FloorSynchronous)->Setup(Start)->Apply(WithCpuAndThreads);
BENCHMARK(FloorAsynchronous)->Setup(StartAsynchronous)->Apply(WithCpuAndThreads);

}  // namespace
}  // namespace benchmarks
