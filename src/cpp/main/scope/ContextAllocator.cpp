#include "ContextAllocator.h"

namespace tarn {
namespace {

// A sanitizer is to see each context come and go.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t mostBlocks = 0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
constexpr std::size_t mostBlocks = 0;
#else
constexpr std::size_t mostBlocks = 32;
#endif
#else
constexpr std::size_t mostBlocks = 32;
#endif

// A block that waits for its next use begins with the address of the next one.
struct FreeBlock {
    FreeBlock* next;
};

// Trivially destructible, so that it can be asked for as long as the thread runs any code.
struct ThreadBlocks {
    FreeBlock* first = nullptr;
    std::size_t count = 0;
    // How many it may keep: none before there is somebody to give them back, and none afterwards.
    std::size_t most = 0;
    bool isTornDown = false;
};

[[gnu::tls_model("initial-exec")]] constinit thread_local ThreadBlocks t_blocks;

// Gives the kept blocks back when the thread ends.
struct Owner {
    Owner() noexcept { t_blocks.most = mostBlocks; }

    ~Owner() {
        t_blocks.most = 0;
        t_blocks.isTornDown = true;
        while (FreeBlock* const block = t_blocks.first) {
            t_blocks.first = block->next;
            ::operator delete(block);
        }
        t_blocks.count = 0;
    }

    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;
};

[[gnu::noinline]] void ReleaseForGood(void* block) noexcept {
    if (!t_blocks.isTornDown) {
        thread_local const Owner owner;
        static_cast<void>(owner);
    }
    ::operator delete(block);
}

}  // namespace

void* TakeContextBlock() {
    FreeBlock* const block = t_blocks.first;
    if (block == nullptr) {
        return ::operator new(contextBlock);
    }
    t_blocks.first = block->next;
    --t_blocks.count;
    return block;
}

void ReleaseContextBlock(void* block) noexcept {
    if (t_blocks.count >= t_blocks.most) {
        ReleaseForGood(block);
        return;
    }
    t_blocks.first = new (block) FreeBlock{t_blocks.first};
    ++t_blocks.count;
}

}  // namespace tarn
