#pragma once

#include "FlatTable.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"

#include <cstddef>
#include <deque>

namespace tarn {

/// The attributes that a scope is opened with, by name, as long as they are lent: the begin event
/// is made of them, and then hardly anybody needs them again.
class OpeningAttributes {
public:
    using const_iterator = FlatTable<Metrics::ValueView>::const_iterator;

    /// A text that is not there as such is made here.
    void Set(const TString& name, const Metrics::ValueView& value) {
        using Kind = Metrics::ValueView::Kind;
        const bool isThere = value.GetKind() != Kind::Wide && value.GetKind() != Kind::Digits;
        m_values.Set(name, isThere ? value : m_made.emplace_back(value.ToValue()));
    }

    bool Has(const TString& name) const { return m_values.Find(name) != nullptr; }

    std::size_t Size() const noexcept { return m_values.Size(); }

    /// For the next scope; keeps no more memory than for a handful of attributes.
    void Clear() noexcept {
        m_values.Release();
        m_made.clear();
    }

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    const_iterator begin() const noexcept { return m_values.begin(); }

    const_iterator end() const noexcept { return m_values.end(); }

    // NOLINTEND(readability-identifier-naming)

private:
    FlatTable<Metrics::ValueView> m_values;
    std::deque<Metrics::MetricsValue> m_made;
};

}  // namespace tarn
