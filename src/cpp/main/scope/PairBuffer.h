#pragma once

#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"

#include <cstddef>
#include <memory>
#include <new>

namespace tarn {

/// Pairs that are lent to the bus together: those of the caller, and what the library adds. As many
/// as a scope ordinarily has stand in the buffer itself.
class PairBuffer {
public:
    /// With room for `more` pairs beside these.
    template <class Pairs>
    explicit PairBuffer(const Pairs& pairs, std::size_t more = 0) {
        const auto count = static_cast<std::size_t>(pairs.end() - pairs.begin());
        if (count + more > few) {
            m_many.reset(static_cast<Metrics::PairView*>(
                ::operator new((count + more) * sizeof(Metrics::PairView))));
            m_first = m_many.get();
            m_end = m_first;
        }
        for (const auto& pair : pairs) {
            Add(pair);
        }
    }

    PairBuffer(const PairBuffer&) = delete;
    PairBuffer& operator=(const PairBuffer&) = delete;
    ~PairBuffer() = default;

    void Add(const Metrics::PairView& pair) noexcept {
        new (static_cast<void*>(m_end)) Metrics::PairView(pair);
        ++m_end;
    }

    void Add(const Metrics::ValueView& name, const Metrics::ValueView& value) noexcept {
        new (static_cast<void*>(m_end)) Metrics::PairView(name, value);
        ++m_end;
    }

    Metrics::PairSpan Span() const noexcept {
        return {m_first, static_cast<std::size_t>(m_end - m_first)};
    }

private:
    static constexpr std::size_t few = 24;

    struct Free {
        void operator()(Metrics::PairView* pairs) const noexcept { ::operator delete(pairs); }
    };

    alignas(Metrics::PairView) std::byte m_few[few * sizeof(Metrics::PairView)];
    std::unique_ptr<Metrics::PairView, Free> m_many;
    Metrics::PairView* m_first = reinterpret_cast<Metrics::PairView*>(m_few);
    Metrics::PairView* m_end = m_first;
};

}  // namespace tarn
