#pragma once

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace tarn {

/// The threads that a scope has been seen on: nearly always one, seldom more than a few.
class ThreadIds {
public:
    void Insert(uint64 id) {
        const auto place = std::lower_bound(m_ids.begin(), m_ids.end(), id);
        if (place == m_ids.end() || *place != id) {
            m_ids.insert(place, id);
        }
    }

    void Insert(const ThreadIds& others) {
        for (const uint64 id : others.m_ids) {
            Insert(id);
        }
    }

    /// Keeps the memory.
    void Clear() noexcept { m_ids.clear(); }

    /// Keeps no more memory than for a few.
    void Release() noexcept {
        constexpr std::size_t few = 8;
        m_ids.clear();
        if (m_ids.capacity() > few) {
            m_ids = {};
        }
    }

    std::size_t Size() const noexcept { return m_ids.size(); }

private:
    std::vector<uint64> m_ids;  // ascending
};

}  // namespace tarn
