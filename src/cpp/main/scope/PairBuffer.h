#pragma once

#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"

#include <cstddef>
#include <memory>
#include <new>

namespace tarn {

/// Pairs in a row that are made one by one, and only if somebody wants them.
class PairSource {
public:
    /// Makes the pair at an index. What it refers to lives as long as the source.
    using Make = Metrics::PairView (*)(const PairSource&, std::size_t index);

    PairSource(Make make, std::size_t size) noexcept : m_make(make), m_size(size) {}

    class Iterator {
    public:
        Iterator(const PairSource& source, std::size_t index) noexcept
            : m_source(&source),
              m_index(index) {}

        Metrics::PairView operator*() const { return m_source->m_make(*m_source, m_index); }

        Iterator& operator++() noexcept {
            ++m_index;
            return *this;
        }

        friend bool operator!=(const Iterator& one, const Iterator& other) noexcept {
            return one.m_index != other.m_index;
        }

        friend std::size_t operator-(const Iterator& one, const Iterator& other) noexcept {
            return one.m_index - other.m_index;
        }

    private:
        const PairSource* m_source;
        std::size_t m_index;
    };

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    Iterator begin() const noexcept { return {*this, 0}; }

    Iterator end() const noexcept { return {*this, m_size}; }

    // NOLINTEND(readability-identifier-naming)

private:
    Make m_make;
    std::size_t m_size;
};

/// Pairs that are lent to the bus together: those of the caller, and what the library adds. As many
/// as a scope ordinarily has stand in the buffer itself.
class PairBuffer {
public:
    /// The pairs of a list, and after them the further ones.
    template <class Pairs, class... Further>
    explicit PairBuffer(const Pairs& pairs, const Further&... further) {
        const std::size_t count =
            static_cast<std::size_t>(pairs.end() - pairs.begin()) + sizeof...(further);
        if (count > few) {
            m_many.reset(
                static_cast<Metrics::PairView*>(::operator new(count * sizeof(Metrics::PairView))));
            m_first = m_many.get();
            m_end = m_first;
        }
        for (const auto& pair : pairs) {
            Add(pair);
        }
        (Add(further), ...);
    }

    PairBuffer(const PairBuffer&) = delete;
    PairBuffer& operator=(const PairBuffer&) = delete;
    ~PairBuffer() = default;

    Metrics::PairSpan Span() const noexcept {
        return {m_first, static_cast<std::size_t>(m_end - m_first)};
    }

private:
    static constexpr std::size_t few = 24;

    void Add(const Metrics::PairView& pair) noexcept {
        new (static_cast<void*>(m_end)) Metrics::PairView(pair);
        ++m_end;
    }

    struct Free {
        void operator()(Metrics::PairView* pairs) const noexcept { ::operator delete(pairs); }
    };

    alignas(Metrics::PairView) std::byte m_few[few * sizeof(Metrics::PairView)];
    std::unique_ptr<Metrics::PairView, Free> m_many;
    Metrics::PairView* m_first = reinterpret_cast<Metrics::PairView*>(m_few);
    Metrics::PairView* m_end = m_first;
};

}  // namespace tarn
