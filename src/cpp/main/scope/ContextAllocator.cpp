#include "ContextAllocator.h"

#include "BlockPool.h"
#include "ThreadObject.h"

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

using Blocks = BlockPool<contextBlock, mostBlocks>;

[[gnu::tls_model("initial-exec")]] constinit thread_local ThreadObject<Blocks> t_blocks;

}  // namespace

void* TakeContextBlock() {
    Blocks* const blocks = t_blocks.Peek();
    return blocks != nullptr ? blocks->Take() : ::operator new(contextBlock);
}

void ReleaseContextBlock(void* block) noexcept {
    if (Blocks* const blocks = t_blocks.Get()) {
        blocks->Release(block);
    } else {
        ::operator delete(block);
    }
}

}  // namespace tarn
