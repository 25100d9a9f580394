#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <initializer_list>
#include <random>
#include <vector>

namespace model {

/// Random choices that are the same on every machine (the standard distributions are not).
class Random {
public:
    explicit Random(uint64 seed) : m_engine(seed) {}

    /// From 0 to `limit` - 1.
    uint64 Below(uint64 limit) { return m_engine() % limit; }

    /// From `first` to `last`, both included.
    int64 Between(int64 first, int64 last) {
        return first + static_cast<int64>(Below(static_cast<uint64>(last - first) + 1));
    }

    bool Percent(int percent) {
        return Below(100) < static_cast<uint64>(percent < 0 ? 0 : percent);
    }

    bool PerMille(int perMille) { return Below(1000) < static_cast<uint64>(perMille); }

    template <class T>
    T OneOf(std::initializer_list<T> choices) {
        return choices.begin()[Below(choices.size())];
    }

    template <class T>
    const T& OneOf(const std::vector<T>& choices) {
        return choices[static_cast<std::size_t>(Below(choices.size()))];
    }

private:
    std::mt19937_64 m_engine;
};

}  // namespace model
