#pragma once

#include "tarn/IMetricsMonitorSink.h"

namespace tarn::test {

/// Drops every event: where the work of a capturing sink, which reads each event's line, would be
/// most of what is measured, or would fail where memory is made to.
class SilentSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& /*event*/) override {}
};

}  // namespace tarn::test
