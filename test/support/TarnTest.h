#pragma once

#include "CapturingLog.h"
#include "RecordingListener.h"
#include "Threads.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace tarn::test {

/// Base of the tests. Afterwards all that is process-wide is as it was before: options, settings,
/// mappings, rank, the bus's clock, the logger's threshold and back end, the memory mode and
/// processor time tracking. Counter pointers are null again. While a test runs the logger writes
/// into `Log()`, from Info on. The test fails when it leaves a listener on the bus, or a context
/// current on its thread.
class TarnTest : public testing::Test {
protected:
    TarnTest();
    ~TarnTest() override;

    CapturingLog& Log() { return *m_log; }

    /// Puts a new listener on the bus, until the test ends or `StopListening`.
    RefCntPtr<RecordingListener> Listen(uint64 bits = Metrics::flagTracing, bool flag = true);
    void StopListening(const RefCntPtr<RecordingListener>& listener);

private:
    struct Saved;

    std::unique_ptr<Saved> m_saved;
    std::shared_ptr<CapturingLog> m_log;
    std::vector<RefCntPtr<RecordingListener>> m_listeners;
};

}  // namespace tarn::test
