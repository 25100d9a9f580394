#include "cvlcoreplatform/TUUID.h"

#include "SmallRandom.h"
#include "ThreadLocalObject.h"

#include "cvlsys/host/ForkOrder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <random>
#include <sys/mman.h>
#include <unistd.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>

namespace {

// The operating system's own numbers: slow, without any state of ours.
using SystemGenerator = boost::uuids::random_generator_pure;

// A child has a copy of its parent's generators and would repeat its ids. So there is a number that
// is another one in the child, which each generator compares with the one that it was seeded under.
// The kernel wipes the page of that number in every child that gets a copy of the memory, however
// it was made. Where the kernel cannot do that, children made by `fork` are noticed all the same.
class EpochOfIds {
public:
    EpochOfIds() noexcept {
        const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void* const page =
            mmap(nullptr, pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page != MAP_FAILED && madvise(page, pageSize, MADV_WIPEONFORK) == 0) {
            m_epoch = new (page) std::atomic<uint64>{0};
        }
    }

    uint64 Get() noexcept {
        const uint64 epoch = m_epoch->load(std::memory_order_relaxed);
        return epoch != 0 ? epoch : Begin();
    }

    void End() noexcept { m_epoch->store(0, std::memory_order_relaxed); }

private:
    uint64 Begin() noexcept {
        const uint64 epoch = m_last.fetch_add(1, std::memory_order_relaxed) + 1;
        m_epoch->store(epoch, std::memory_order_relaxed);
        return epoch;
    }

    std::atomic<uint64> m_last{0};
    std::atomic<uint64> m_unwiped{0};
    std::atomic<uint64>* m_epoch = &m_unwiped;
};

EpochOfIds epochOfIds;

[[maybe_unused]] cvlsys::InForkedChild beginEpoch([] { epochOfIds.End(); });

class Generator {
public:
    Generator() = default;
    ~Generator() = default;
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    std::array<unsigned char, 16> Next() {
        if (const uint64 epoch = epochOfIds.Get(); epoch != m_epoch) {
            m_random = Seeded();
            m_epoch = epoch;
        }
        const std::array<uint64, 2> bits{m_random.Next(), m_random.Next()};
        std::array<unsigned char, 16> bytes{};
        static_assert(sizeof bytes == sizeof bits);
        std::memcpy(bytes.data(), bits.data(), sizeof bytes);
        // Version 4, random, of the variant that RFC 4122 defines.
        bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
        bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
        return bytes;
    }

private:
    [[gnu::noinline]] static host::SmallRandom Seeded() {
        // Two ids hold 244 random bits.
        SystemGenerator system;
        const std::array<boost::uuids::uuid, 2> entropy{system(), system()};
        std::array<std::seed_seq::result_type, sizeof entropy / sizeof(std::seed_seq::result_type)>
            words{};
        static_assert(sizeof words == sizeof entropy);
        std::memcpy(words.data(), entropy.data(), sizeof words);
        std::seed_seq(words.begin(), words.end()).generate(words.begin(), words.end());
        host::SmallRandom::State state{};
        static_assert(sizeof state == sizeof words);
        std::memcpy(state.data(), words.data(), sizeof state);
        state[0] |= 1;  // never zeroes only
        return host::SmallRandom(state);
    }

    host::SmallRandom m_random = Seeded();
    uint64 m_epoch = epochOfIds.Get();
};

using ThreadGenerator = host::ThreadObject<Generator>;

[[gnu::noinline]] TUUID CreateFromSystem() {
    const boost::uuids::uuid id = SystemGenerator()();
    std::array<unsigned char, 16> bytes{};
    std::copy(id.begin(), id.end(), bytes.begin());
    return TUUID(bytes);
}

}  // namespace

TUUID TUUID::CreateUUID() {
    Generator* const generator = ThreadGenerator::Get();
    return generator != nullptr ? TUUID(generator->Next()) : CreateFromSystem();
}
