#pragma once

#include "SharedStack.h"

#include "cvlsys/IntegerTypes.h"

#include <initializer_list>
#include <optional>
#include <vector>

namespace tarn {

/// The ids of the scopes that sponsor a scope, the nearest on top. A scope shares the chain of the
/// one that it opens in. What it adds itself becomes a part of the chain when it is copied for the
/// first scope that opens in this one; most scopes have none. One thread at a time; copying throws
/// `std::bad_alloc`.
class SponsorChain {
public:
    /// From the nearest on.
    class Iterator {
    public:
        Iterator(const uint64* own, SharedStack<uint64>::Iterator shared) noexcept
            : m_own(own),
              m_shared(shared) {}

        const uint64& operator*() const noexcept { return m_own != nullptr ? *m_own : *m_shared; }

        Iterator& operator++() noexcept {
            if (m_own != nullptr) {
                m_own = nullptr;
            } else {
                ++m_shared;
            }
            return *this;
        }

        friend bool operator==(const Iterator&, const Iterator&) noexcept = default;

    private:
        const uint64* m_own;
        SharedStack<uint64>::Iterator m_shared;
    };

    SponsorChain() noexcept = default;

    /// The nearest sponsor last.
    SponsorChain(std::initializer_list<uint64> ids) : m_shared(ids) {}

    SponsorChain(const SponsorChain& other) : m_shared(other.Share()) {}

    SponsorChain(SponsorChain&&) noexcept = default;

    SponsorChain& operator=(const SponsorChain& other) {
        m_shared = other.Share();
        if (this != &other) {
            m_own.reset();
        }
        return *this;
    }

    SponsorChain& operator=(SponsorChain&&) noexcept = default;
    ~SponsorChain() = default;

    void Push(uint64 id) {
        Share();
        m_own = id;
    }

    /// The nearest sponsor last.
    std::vector<uint64> GetIds() const {
        std::vector<uint64> nearestFirst;
        for (const uint64 id : *this) {
            nearestFirst.push_back(id);
        }
        return {nearestFirst.rbegin(), nearestFirst.rend()};
    }

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    Iterator begin() const noexcept {
        return {m_own.has_value() ? &*m_own : nullptr, m_shared.begin()};
    }

    Iterator end() const noexcept { return {nullptr, m_shared.end()}; }

    // NOLINTEND(readability-identifier-naming)

private:
    const SharedStack<uint64>& Share() const {
        if (m_own.has_value()) {
            m_shared.Push(*m_own);
            m_own.reset();
        }
        return m_shared;
    }

    // The nearest, as long as nobody shares it.
    mutable std::optional<uint64> m_own;
    mutable SharedStack<uint64> m_shared;
};

}  // namespace tarn
