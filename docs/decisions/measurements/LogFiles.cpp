// What becomes of the lines in a log file when the disk is full or a full file cannot be renamed,
// and what a line costs: the packaged rotating sink beside the host's own. From the root of the
// project:
//
//   g++ -O2 -std=c++20 -DSPDLOG_COMPILED_LIB -DSPDLOG_SHARED_LIB -DSPDLOG_FMT_EXTERNAL \
//       -Isrc/cpp/declarations -Ihost/cvlsys/include -Ihost/cvlcoreplatform/include \
//       -Ihost/cvlcoreplatform \
//       docs/decisions/measurements/LogFiles.cpp \
//       host/cvlcoreplatform/{ErrorReporter,LineOutput,LogStatistics}.cpp \
//       host/cvlcoreplatform/{PipeSignal,RotatingFileSink}.cpp host/cvlsys/TSystem.cpp \
//       -lspdlog -lfmt -lbenchmark -o /tmp/log-files && /tmp/log-files
#include "RotatingFileSink.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

const std::string folder = "/tmp/log-files-measurement";
const std::string path = folder + "/a.log";

std::shared_ptr<spdlog::sinks::sink> MakePackaged(std::size_t maxBytes) {
    auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, maxBytes, 3);
    sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
    return sink;
}

std::shared_ptr<spdlog::sinks::sink> MakeOwn(std::size_t maxBytes) {
    TLog::LogFileLimits limits;
    limits.maxBytes = maxBytes;
    limits.maxFiles = 3;
    return std::make_shared<cvlcoreplatform::RotatingFileSink>(path, limits);
}

using Maker = std::shared_ptr<spdlog::sinks::sink> (*)(std::size_t);

void StartAfresh() {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
}

void Write(spdlog::sinks::sink& sink, const std::string& line) {
    try {
        sink.log(spdlog::details::log_msg(
            spdlog::log_clock::time_point(), {}, "", spdlog::level::info, line));
    } catch (const std::exception&) {
        // The caller goes on.
    }
}

void InChild(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

void ShowWhatIsLeft(const char* name) {
    std::ifstream file(path);
    std::size_t whole = 0;
    std::size_t broken = 0;
    for (std::string line; std::getline(file, line);) {
        (line.size() == 99 && !file.eof() ? whole : broken) += 1;
    }
    std::printf("  %-16s %zu whole lines, %zu broken\n", name, whole, broken);
}

// Room for 100 lines and a half, then for plenty again.
void FillTheDisk(const char* name, Maker make) {
    StartAfresh();
    InChild([make] {
        signal(SIGXFSZ, SIG_IGN);
        const auto sink = make(1'000'000);
        for (int i = 0; i < 300; ++i) {
            const rlimit limit{i < 200 ? 10'050u : 1'000'000u, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            Write(*sink, std::string(99, 'x'));
        }
        try {
            sink->flush();
        } catch (const std::exception&) {
        }
    });
    ShowWhatIsLeft(name);
}

// 100 lines fit; something is in the way of the full file.
void PreventRenaming(const char* name, Maker make) {
    StartAfresh();
    std::filesystem::create_directories(folder + "/a.1.log/in the way");
    std::filesystem::create_directories(folder + "/a.2.log/in the way");
    std::filesystem::create_directories(folder + "/a.3.log/in the way");
    InChild([make] {
        const auto sink = make(10'000);
        for (int i = 0; i < 150; ++i) {
            Write(*sink, std::string(99, 'x'));
        }
        sink->flush();
    });
    ShowWhatIsLeft(name);
}

template <Maker make>
void LineOf350Bytes(benchmark::State& state) {
    StartAfresh();
    const auto sink = make(64 << 20);
    const std::string line(349, 'x');
    for ([[maybe_unused]] auto round : state) {
        Write(*sink, line);
    }
    sink->flush();
    if (std::filesystem::file_size(path) % 350 != 0) {
        state.SkipWithError("the file does not hold whole lines");
    }
}

BENCHMARK(LineOf350Bytes<MakePackaged>);
BENCHMARK(LineOf350Bytes<MakeOwn>);

}  // namespace

int main(int argc, char** argv) {
    std::puts("disk full for lines 101 to 200 of 300:");
    FillTheDisk("packaged", MakePackaged);
    FillTheDisk("own", MakeOwn);
    std::puts("renaming fails after 100 of 150 lines:");
    PreventRenaming("packaged", MakePackaged);
    PreventRenaming("own", MakeOwn);
    std::fflush(stdout);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(folder);
}
