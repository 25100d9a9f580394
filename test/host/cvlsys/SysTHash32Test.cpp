#include "cvlsys/THash32.h"

#include <bit>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

uint32 Hash(std::string_view text, uint32 seed = 0) {
    return THash32(text.data(), text.size(), seed);
}

// The hash's definition, four bytes at a time.
uint32 HashSlowly(const std::vector<unsigned char>& bytes, uint32 seed) {
    constexpr uint32 prime1 = 2654435761u;
    constexpr uint32 prime2 = 2246822519u;
    constexpr uint32 prime3 = 3266489917u;
    constexpr uint32 prime4 = 668265263u;
    constexpr uint32 prime5 = 374761393u;
    const auto word = [&](std::size_t at) {
        uint32 value = 0;
        std::memcpy(&value, bytes.data() + at, 4);
        return value;
    };

    std::size_t at = 0;
    uint32 hash = seed + prime5;
    if (bytes.size() >= 16) {
        uint32 lanes[4] = {seed + prime1 + prime2, seed + prime2, seed, seed - prime1};
        for (; bytes.size() - at >= 16; at += 16) {
            for (std::size_t i = 0; i < 4; ++i) {
                lanes[i] = std::rotl(lanes[i] + word(at + 4 * i) * prime2, 13) * prime1;
            }
        }
        hash = std::rotl(lanes[0], 1) + std::rotl(lanes[1], 7) + std::rotl(lanes[2], 12) +
               std::rotl(lanes[3], 18);
    }
    hash += static_cast<uint32>(bytes.size());
    for (; bytes.size() - at >= 4; at += 4) {
        hash = std::rotl(hash + word(at) * prime3, 17) * prime4;
    }
    for (; at < bytes.size(); ++at) {
        hash = std::rotl(hash + bytes[at] * prime5, 11) * prime1;
    }
    hash = (hash ^ hash >> 15) * prime2;
    hash = (hash ^ hash >> 13) * prime3;
    return hash ^ hash >> 16;
}

TEST(SysTHash32Test, PublishedValuesAreReproduced) {
    EXPECT_EQ(Hash(""), 0x02CC5D05u);
    EXPECT_EQ(Hash("", 0x9E3779B1u), 0x36B78AE7u);
    EXPECT_EQ(Hash("abc"), 0x32D153FFu);
    EXPECT_EQ(Hash("Nobody inspects the spammish repetition"), 0xE2293B2Fu);
}

TEST(SysTHash32Test, NothingAtNullIsTheEmptyText) {
    EXPECT_EQ(THash32(nullptr, 0, 0), Hash(""));
}

TEST(SysTHash32Test, BytesOfEveryLengthAndAlignmentAreHashedAsDefined) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);

    for (std::size_t length = 0; length < 300; ++length) {
        std::vector<unsigned char> bytes(length);
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(random());
        }
        const auto hashSeed = static_cast<uint32>(random());
        std::vector<unsigned char> shifted(length + 1);
        std::copy(bytes.begin(), bytes.end(), shifted.begin() + 1);

        EXPECT_EQ(THash32(bytes.data(), length, hashSeed), HashSlowly(bytes, hashSeed)) << length;
        EXPECT_EQ(THash32(shifted.data() + 1, length, hashSeed), HashSlowly(bytes, hashSeed))
            << length;
    }
}

}  // namespace
