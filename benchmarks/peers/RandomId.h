#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>

namespace benchmarks {

/// 128 random bits.
struct RandomId {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
};

inline constexpr std::size_t idTextLength = 36;

/// The cheapest generator of random ids that is good enough: xoshiro256**, one for each thread.
class RandomIds {
public:
    RandomIds() {
        std::random_device seed;
        for (std::uint64_t& word : m_state) {
            word = (std::uint64_t{seed()} << 32) | seed();
        }
    }

    RandomId Next() noexcept { return {NextWord(), NextWord()}; }

private:
    std::uint64_t NextWord() noexcept {
        const std::uint64_t result = std::rotl(m_state[1] * 5, 7) * 9;
        const std::uint64_t shifted = m_state[1] << 17;
        m_state[2] ^= m_state[0];
        m_state[3] ^= m_state[1];
        m_state[1] ^= m_state[2];
        m_state[0] ^= m_state[3];
        m_state[2] ^= shifted;
        m_state[3] = std::rotl(m_state[3], 45);
        return result;
    }

    std::array<std::uint64_t, 4> m_state{};
};

/// Writes the form with hyphens, `idTextLength` characters.
inline void WriteIdText(const RandomId& id, char* to) noexcept {
    constexpr char digits[] = "0123456789ABCDEF";
    std::array<unsigned char, 16> bytes{};
    std::memcpy(bytes.data(), &id.high, 8);
    std::memcpy(bytes.data() + 8, &id.low, 8);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            *to++ = '-';
        }
        *to++ = digits[bytes[i] >> 4];
        *to++ = digits[bytes[i] & 15];
    }
}

}  // namespace benchmarks
