#pragma once

#include "MonitorTest.h"

#include "cvlsys/IntegerTypes.h"

#include <string>

namespace tarn::test {

/// Scopes that take a time, or end with a result.
class EndActivityFiguresTest : public MonitorTest {
protected:
    void OpenAt(int64 milliseconds,
                uint64 id,
                const std::string& name,
                const Metrics::NameValueList& pairs = {}) {
        Send(EventBuilder::OpenScope(id, name)
                 .In(rootContext)
                 .With(pairs)
                 .AtMilliseconds(milliseconds));
    }

    void CloseAt(int64 milliseconds, uint64 id) {
        Send(EventBuilder::CloseScope(id).In(rootContext).AtMilliseconds(milliseconds));
    }

    void EndsWith(uint64 id, const Metrics::MetricsValue& resultKey) {
        Send(EventBuilder::ScopePairs(id, "resultAttrs", {{"rk", resultKey}}));
    }
};

}  // namespace tarn::test
