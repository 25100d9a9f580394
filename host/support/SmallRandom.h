#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace host {

/// The random numbers of xoshiro256**, by Blackman and Vigna: 64 bits at a time, with a period of
/// 2^256 - 1, from a state of 32 bytes. No secrets: who sees four of them in a row knows all that
/// follow.
class SmallRandom {
public:
    using State = std::array<std::uint64_t, 4>;

    /// Any state will do but for one of zeroes only, from which nothing but zeroes come.
    constexpr explicit SmallRandom(const State& state) noexcept : m_state(state) {}

    constexpr std::uint64_t Next() noexcept {
        auto& [a, b, c, d] = m_state;
        const std::uint64_t result = std::rotl(b * 5, 7) * 9;
        const std::uint64_t shifted = b << 17;
        c ^= a;
        d ^= b;
        b ^= c;
        a ^= d;
        c ^= shifted;
        d = std::rotl(d, 45);
        return result;
    }

private:
    State m_state;
};

}  // namespace host
