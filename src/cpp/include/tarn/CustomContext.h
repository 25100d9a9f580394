#pragma once

#include "tarn/Export.h"

#include "cvlmetrics/MetricsValue.h"

#include <type_traits>
#include <utility>

namespace tarn {

/// Context attributes that hold as long as a scope. A record that owns its pairs.
struct CustomContext {
    Metrics::NameValueList attributes;

    /// Takes exactly an attribute list that is given away, and leaves it empty: neither a braced
    /// list nor a copy becomes a custom context by accident.
    template <class List, std::enable_if_t<std::is_same_v<List, Metrics::NameValueList>, int> = 0>
    explicit CustomContext(List&& list) noexcept : attributes(std::move(list)) {}

    CustomContext(const CustomContext&) = default;
    CustomContext(CustomContext&&) noexcept = default;
    CustomContext& operator=(const CustomContext&) = default;
    ~CustomContext() = default;

    /// Moving a record into itself keeps its pairs.
    CustomContext& operator=(CustomContext&& other) noexcept {
        if (this != &other) {
            attributes = std::move(other.attributes);
            other.attributes.clear();
        }
        return *this;
    }
};

}  // namespace tarn
