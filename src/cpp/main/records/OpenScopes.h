#pragma once

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <new>
#include <unordered_set>
#include <vector>

namespace tarn {

/// The ids without a record that searches have passed over, in the stacks of all contexts, as often
/// as they occur there. When one gets a record again, what these searches found is void.
class PassedOverIds {
public:
    /// To be told of each record that is made.
    void HasRecord(uint64 id) noexcept {
        if (!m_ids.empty() && m_ids.count(id) != 0) {
            m_ids.clear();
            ++m_age;
        }
    }

private:
    friend class OpenScopes;

    std::unordered_multiset<uint64> m_ids;
    uint64 m_age = 0;
};

/// The ids of the scopes that are open in one context, the innermost last. An id that lost its
/// record by an end out of order stays where it is. Searches remember the places of such ids, so
/// that one is passed over once however often the innermost record is asked for. One thread at a
/// time.
class OpenScopes {
public:
    bool IsEmpty() const noexcept { return m_ids.empty(); }

    std::size_t Size() const noexcept { return m_ids.size(); }

    /// How many of the scopes still have their record.
    std::size_t Depth() const noexcept { return m_ids.size() - std::min(m_lost, m_ids.size()); }

    uint64 Last() const noexcept { return m_ids.back(); }

    void Push(uint64 id) { m_ids.push_back(id); }

    /// One of the ids below the last one has lost its record.
    void CountLost() noexcept { ++m_lost; }

    /// Takes the last id away. `hasRecord` says whether it still had its record.
    void Pop(PassedOverIds& passedOver, bool hasRecord) noexcept {
        if (!hasRecord && m_lost > 0) {
            --m_lost;
        }
        Refresh(passedOver);
        if (!m_gaps.empty() && m_gaps.back().end == m_ids.size()) {
            Forget(passedOver, m_ids.back());
            if (--m_gaps.back().end == m_gaps.back().begin) {
                m_gaps.pop_back();
            }
        }
        m_ids.pop_back();
    }

    /// Before the stack goes.
    void Release(PassedOverIds& passedOver) noexcept {
        Refresh(passedOver);
        for (const Gap& gap : m_gaps) {
            for (std::size_t place = gap.begin; place < gap.end; ++place) {
                Forget(passedOver, m_ids[place]);
            }
        }
        m_gaps.clear();
    }

    /// The record of the innermost id that `find` knows one of, else null. `find` takes an id and
    /// gives a pointer.
    template <class Find>
    auto FindInnermost(PassedOverIds& passedOver, const Find& find) -> decltype(find(uint64{})) {
        Refresh(passedOver);
        const std::size_t top = m_ids.size();
        std::size_t place = top;
        bool remembers = true;
        decltype(find(uint64{})) record = nullptr;
        while (place > 0) {
            if (!m_gaps.empty() && m_gaps.back().end == place) {
                place = m_gaps.back().begin;
                m_gaps.pop_back();
            } else if (record = find(m_ids[place - 1]); record != nullptr) {
                break;
            } else {
                --place;
                remembers = remembers && Remember(passedOver, m_ids[place]);
            }
        }
        if (place < top && remembers) {
            RememberGap({place, top});
        }
        return record;
    }

private:
    /// Places whose ids have no record.
    struct Gap {
        std::size_t begin;
        std::size_t end;
    };

    void Refresh(const PassedOverIds& passedOver) noexcept {
        if (m_age != passedOver.m_age) {
            m_gaps.clear();
            m_age = passedOver.m_age;
        }
    }

    // What finds no memory is passed over once more by the next search.

    static bool Remember(PassedOverIds& passedOver, uint64 id) noexcept {
        try {
            passedOver.m_ids.insert(id);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    void RememberGap(Gap gap) noexcept {
        try {
            m_gaps.push_back(gap);
        } catch (const std::bad_alloc&) {
            return;
        }
    }

    static void Forget(PassedOverIds& passedOver, uint64 id) noexcept {
        const auto place = passedOver.m_ids.find(id);
        if (place != passedOver.m_ids.end()) {
            passedOver.m_ids.erase(place);
        }
    }

    std::deque<uint64> m_ids;
    std::size_t m_lost = 0;
    std::vector<Gap> m_gaps;  // in the order of the places, none touches the next
    uint64 m_age = 0;
};

}  // namespace tarn
