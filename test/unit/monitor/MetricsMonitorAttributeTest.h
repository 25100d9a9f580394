#pragma once

#include "MonitorTest.h"

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <string>

namespace tarn::test {

class MetricsMonitorAttributeTest : public MonitorTest {
protected:
    void AddToScope(uint64 id, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ScopePairs(id, "multiNVPs", pairs));
    }

    void AddResult(uint64 id, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ScopePairs(id, L"resultAttrs", pairs));
    }

    void AddToContext(const char* listName, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(rootContext, listName, pairs));
    }

    /// The number of threads of the last event's scope.
    LogValue ThreadsOfLastEvent() const {
        const auto resources = Field(LastEvent(), Table::Activity, "res").value_or("missing");
        const std::size_t at = resources.Text().find("\"ntid\": ");
        return at == std::string::npos ? LogValue("missing")
                                       : LogValue(std::stoi(resources.Text().substr(at + 8)));
    }
};

}  // namespace tarn::test
