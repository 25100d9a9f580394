#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace ProcessTest {

/// What a process has got done, in a file that outlives it however it ends: for each of its threads
/// the number of scopes that have ended, destructor and all.
class Progress {
public:
    static constexpr std::size_t threadCount = 16;

    /// Maps the file, which is made if it is not there.
    explicit Progress(const std::string& path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        void* memory = MAP_FAILED;
        if (file >= 0 && ftruncate(file, sizeof(Figures)) == 0) {
            memory = mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        }
        close(file);
        if (memory == MAP_FAILED) {
            throw std::runtime_error("cannot map " + path);
        }
        m_figures = static_cast<Figures*>(memory);
    }

    ~Progress() { munmap(m_figures, sizeof(Figures)); }

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Count(std::size_t thread) noexcept {
        m_figures->ended[thread].fetch_add(1, std::memory_order_relaxed);
    }

    std::uint64_t Ended(std::size_t thread) const noexcept {
        return m_figures->ended[thread].load(std::memory_order_relaxed);
    }

    std::uint64_t EndedInAll() const noexcept {
        std::uint64_t sum = 0;
        for (std::size_t thread = 0; thread < threadCount; ++thread) {
            sum += Ended(thread);
        }
        return sum;
    }

private:
    struct Figures {
        std::atomic<std::uint64_t> ended[threadCount];
    };

    Figures* m_figures;
};

}  // namespace ProcessTest
