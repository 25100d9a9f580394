#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace tarn {

/// The ids of the scopes that sponsor a scope, however far away. A scope shares the chain of the
/// one that it opens in, so that copying and lengthening it cost the same at every depth.
class SponsorChain {
    struct Link {
        uint64 id;
        std::shared_ptr<Link> next;
    };

public:
    /// From the nearest sponsor to the farthest.
    class Iterator {
    public:
        explicit Iterator(const Link* link) noexcept : m_link(link) {}

        uint64 operator*() const noexcept { return m_link->id; }

        Iterator& operator++() noexcept {
            m_link = m_link->next.get();
            return *this;
        }

        friend bool operator==(const Iterator&, const Iterator&) noexcept = default;

    private:
        const Link* m_link;
    };

    SponsorChain() noexcept = default;

    /// The nearest sponsor stands last.
    SponsorChain(std::initializer_list<uint64> ids) {
        for (const uint64 id : ids) {
            Push(id);
        }
    }

    SponsorChain(const SponsorChain&) noexcept = default;
    SponsorChain(SponsorChain&&) noexcept = default;

    SponsorChain& operator=(const SponsorChain& other) noexcept {
        SponsorChain copy(other);
        std::swap(m_nearest, copy.m_nearest);
        return *this;
    }

    SponsorChain& operator=(SponsorChain&& other) noexcept {
        SponsorChain taken(std::move(other));
        std::swap(m_nearest, taken.m_nearest);
        return *this;
    }

    // Link by link: a chain may be longer than the stack is deep.
    ~SponsorChain() {
        while (m_nearest != nullptr && m_nearest.use_count() == 1) {
            m_nearest = std::exchange(m_nearest->next, nullptr);
        }
    }

    /// The id becomes the nearest sponsor.
    void Push(uint64 id) { m_nearest = std::make_shared<Link>(Link{id, m_nearest}); }

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    Iterator begin() const noexcept { return Iterator(m_nearest.get()); }

    Iterator end() const noexcept { return Iterator(nullptr); }

    // NOLINTEND(readability-identifier-naming)

    /// The nearest sponsor last.
    std::vector<uint64> GetIds() const {
        std::vector<uint64> nearestFirst;
        for (const uint64 id : *this) {
            nearestFirst.push_back(id);
        }
        return {nearestFirst.rbegin(), nearestFirst.rend()};
    }

private:
    std::shared_ptr<Link> m_nearest;
};

}  // namespace tarn
