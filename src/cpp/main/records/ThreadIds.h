#pragma once

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <cstddef>
#include <unordered_set>
#include <vector>

namespace tarn {

/// The threads that a scope or a context has been seen on, each once: nearly always one, seldom
/// more than a few.
class ThreadIds {
public:
    void Insert(uint64 id) {
        if (!m_few.empty() && m_few.front() == id) {
            return;
        }
        if (!m_many.empty()) {
            m_many.insert(id);
        } else if (std::find(m_few.begin(), m_few.end(), id) == m_few.end()) {
            if (m_few.size() < mostFew) {
                m_few.push_back(id);
            } else {
                GoOnWithMany(id);
            }
        }
    }

    void Insert(const ThreadIds& others) {
        for (const uint64 id : others.m_few) {
            Insert(id);
        }
        for (const uint64 id : others.m_many) {
            Insert(id);
        }
    }

    /// Keeps the memory.
    void Clear() noexcept {
        m_few.clear();
        m_many.clear();
    }

    /// Keeps no more memory than for a few.
    void Release() noexcept {
        m_few.clear();
        if (!m_many.empty()) {
            m_many = {};
        }
    }

    bool IsEmpty() const noexcept { return Size() == 0; }

    std::size_t Size() const noexcept { return m_few.size() + m_many.size(); }

private:
    static constexpr std::size_t mostFew = 16;

    void GoOnWithMany(uint64 id) {
        std::unordered_set<uint64> many(m_few.begin(), m_few.end());
        many.insert(id);
        m_many.swap(many);
        m_few.clear();
    }

    // One of the two is empty.
    std::vector<uint64> m_few;
    std::unordered_set<uint64> m_many;
};

}  // namespace tarn
