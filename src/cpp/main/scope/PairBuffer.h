#pragma once

#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>

namespace tarn {

/// Pairs in a row that are made when somebody wants them.
class PairSource {
public:
    /// Constructs all pairs in `room`. What they refer to lives as long as the source. May throw.
    using Make = void (*)(const PairSource& source, Metrics::PairView* room);

    PairSource(Make make, std::size_t size) noexcept : m_make(make), m_size(size) {}

    std::size_t Size() const noexcept { return m_size; }

    void MakeIn(Metrics::PairView* room) const { m_make(*this, room); }

private:
    Make m_make;
    std::size_t m_size;
};

/// Pairs that are lent to the bus together: those of the caller, and what the library adds. As many
/// as a scope ordinarily has fit into the buffer itself.
class PairBuffer {
public:
    /// The pairs of a list, and after them the further ones.
    template <class... Further>
    explicit PairBuffer(Metrics::PairSpan pairs, const Further&... further) {
        MakeRoomFor(pairs.Size() + sizeof...(further));
        for (const Metrics::PairView& pair : pairs) {
            Add(pair);
        }
        (Add(further), ...);
    }

    /// The same with pairs that are made here.
    template <class... Further>
    explicit PairBuffer(const PairSource& pairs, const Further&... further) {
        MakeRoomFor(pairs.Size() + sizeof...(further));
        pairs.MakeIn(m_end);
        m_end += pairs.Size();
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

    void MakeRoomFor(std::size_t count) {
        if (count > few) {
            m_many.reset(
                static_cast<Metrics::PairView*>(::operator new(count * sizeof(Metrics::PairView))));
            m_first = m_many.get();
            m_end = m_first;
        }
    }

    alignas(Metrics::PairView) std::byte m_few[few * sizeof(Metrics::PairView)];
    std::unique_ptr<Metrics::PairView, Free> m_many;
    Metrics::PairView* m_first = reinterpret_cast<Metrics::PairView*>(m_few);
    Metrics::PairView* m_end = m_first;
};

}  // namespace tarn
