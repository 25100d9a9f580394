#pragma once

#include "MonitorTest.h"

#include "cvlsys/IntegerTypes.h"

namespace tarn::test {

class MetricsMonitorContextTest : public MonitorTest {
protected:
    /// Attributes of the request that the context serves.
    void AddToRequest(uint64 contextId, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(contextId, "reqCtxAttrs", pairs));
    }
};

}  // namespace tarn::test
