#include "support/AllocationCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace benchmarks {

namespace {

// What one thread has allocated. Only that thread writes, so plain additions do; they are atomic
// for those who read. Never freed: a thread's figures outlive it.
struct alignas(64) ThreadFigures {
    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> bytes{0};
    ThreadFigures* next = nullptr;
};

constinit std::atomic<ThreadFigures*> g_allFigures{nullptr};
constinit thread_local ThreadFigures* t_figures = nullptr;

ThreadFigures& MakeFigures() noexcept {
    void* const memory = std::aligned_alloc(alignof(ThreadFigures), sizeof(ThreadFigures));
    if (memory == nullptr) {
        std::abort();
    }
    t_figures = new (memory) ThreadFigures;
    t_figures->next = g_allFigures.load(std::memory_order_relaxed);
    while (!g_allFigures.compare_exchange_weak(
        t_figures->next, t_figures, std::memory_order_release, std::memory_order_relaxed)) {
    }
    return *t_figures;
}

ThreadFigures& FiguresOfThisThread() noexcept {
    return t_figures != nullptr ? *t_figures : MakeFigures();
}

void Add(std::atomic<std::uint64_t>& figure, std::uint64_t amount) noexcept {
    figure.store(figure.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

void Count(std::size_t bytes) noexcept {
    ThreadFigures& figures = FiguresOfThisThread();
    Add(figures.calls, 1);
    Add(figures.bytes, bytes);
}

Allocations Read(const ThreadFigures& figures) noexcept {
    return {figures.calls.load(std::memory_order_relaxed),
            figures.bytes.load(std::memory_order_relaxed)};
}

void* Allocate(std::size_t bytes) noexcept {
    Count(bytes);
    // malloc(0) may give null, operator new must not.
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* AllocateAligned(std::size_t bytes, std::align_val_t alignment) noexcept {
    Count(bytes);
    const auto boundary = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t rounded = (bytes + boundary - 1) / boundary * boundary;
    return std::aligned_alloc(boundary, rounded == 0 ? boundary : rounded);
}

}  // namespace

Allocations AllocationsOfThisThread() noexcept {
    return Read(FiguresOfThisThread());
}

Allocations AllocationsOfProcess() noexcept {
    Allocations sum;
    for (const ThreadFigures* figures = g_allFigures.load(std::memory_order_acquire);
         figures != nullptr;
         figures = figures->next) {
        sum += Read(*figures);
    }
    return sum;
}

}  // namespace benchmarks

// The operators for arrays and those that do not throw end up here by default.

void* operator new(std::size_t bytes) {
    void* const block = benchmarks::Allocate(bytes);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(std::size_t bytes, std::align_val_t alignment) {
    void* const block = benchmarks::AllocateAligned(bytes, alignment);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
