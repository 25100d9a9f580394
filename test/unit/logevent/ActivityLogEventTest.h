#pragma once

#include "MonitorTest.h"

namespace tarn::test {

class ActivityLogEventTest : public MonitorTest {
protected:
    void AddToRequest(const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", pairs));
    }

    void AddLayer(const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(rootContext, "ctx", pairs));
    }
};

}  // namespace tarn::test
