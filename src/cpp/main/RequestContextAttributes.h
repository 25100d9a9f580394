#pragma once

#include "FlatTable.h"

#include "cvlmetrics/MetricsValue.h"

namespace tarn {

/// The attributes of one request, shared by all contexts that serve it. Its beginning and its end
/// are counted.
class RequestContextAttributes {
public:
    using Table = FlatTable<Metrics::MetricsValue>;

    RequestContextAttributes();
    ~RequestContextAttributes();
    RequestContextAttributes(const RequestContextAttributes&) = delete;
    RequestContextAttributes& operator=(const RequestContextAttributes&) = delete;

    Table attributes;
};

}  // namespace tarn
