#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"

#include <unordered_map>

namespace tarn {

/// The attributes of one request, shared by all contexts that serve it. Its beginning and its end
/// are counted.
class RequestContextAttributes {
public:
    using Table = std::unordered_map<TString, Metrics::MetricsValue>;

    RequestContextAttributes();
    ~RequestContextAttributes();
    RequestContextAttributes(const RequestContextAttributes&) = delete;
    RequestContextAttributes& operator=(const RequestContextAttributes&) = delete;

    Table attributes;
};

}  // namespace tarn
