#pragma once

#include "PairBuffer.h"

#include "tarn/tarn.h"

#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"

#include <cstddef>
#include <forward_list>
#include <string>

namespace tarn {

/// Attributes of the C interface as pairs of the bus, each made when it is wanted. Texts are lent,
/// those that are made live as long as this. Making a pair throws `std::bad_alloc`.
class AttributePairs : public PairSource {
public:
    AttributePairs(const abi::tarn_attribute* first, std::size_t count) noexcept
        : PairSource(MakePairs, first != nullptr ? count : 0),
          m_first(first) {}

    /// Pairs that own what they hold.
    Metrics::NameValueList ToList() const;

private:
    static void MakePairs(const PairSource& source, Metrics::PairView* room);

    Metrics::ValueView MakeUncommonValue(const abi::tarn_attribute& attribute) const;
    Metrics::ValueView Keep(std::string&& text) const;

    const abi::tarn_attribute* m_first;
    mutable std::forward_list<std::string> m_texts;
};

}  // namespace tarn
