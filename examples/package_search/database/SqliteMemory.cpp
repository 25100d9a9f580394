#include "SqliteMemory.h"

#include "cvlsys/TAllocate.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <sqlite3.h>

namespace packagesearch::sqlite {

namespace {

// SQLite asks for the size of its blocks; it is stored before each block.
struct alignas(std::max_align_t) Head {
    int bytes = 0;
};

Head* HeadOf(void* block) {
    return static_cast<Head*>(block) - 1;
}

void* Allocate(int bytes) {
    auto* const head = static_cast<Head*>(TMalloc(sizeof(Head) + static_cast<std::size_t>(bytes)));
    if (head == nullptr) {
        return nullptr;
    }
    head->bytes = bytes;
    return head + 1;
}

void Free(void* block) {
    TFree(HeadOf(block));
}

int Size(void* block) {
    return block == nullptr ? 0 : HeadOf(block)->bytes;
}

void* Reallocate(void* block, int bytes) {
    void* const larger = Allocate(bytes);
    if (larger != nullptr) {
        std::memcpy(larger, block, static_cast<std::size_t>(std::min(bytes, Size(block))));
        Free(block);
    }
    return larger;
}

int RoundUp(int bytes) {
    constexpr int unit = 8;
    return (bytes + unit - 1) / unit * unit;
}

int Begin(void* /*data*/) {
    return SQLITE_OK;
}

void End(void* /*data*/) {}

}  // namespace

void CountMemory() {
    static std::once_flag once;
    std::call_once(once, [] {
        static sqlite3_mem_methods methods{
            Allocate, Free, Reallocate, Size, RoundUp, Begin, End, nullptr};
        // Refused when SQLite is in use already; its memory is then not counted, all else works.
        static_cast<void>(sqlite3_config(SQLITE_CONFIG_MALLOC, &methods));
    });
}

}  // namespace packagesearch::sqlite
