#pragma once

#include "TarnTest.h"

#include "tarn/ActivityContext.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <string>
#include <vector>

namespace tarn::test {

/// Base of the tests of scopes: a thread with a metrics context, and a listener that has seen
/// nothing yet.
class ScopeTest : public TarnTest {
protected:
    ScopeTest();

    static void SwitchForegroundContextsOn();

    /// "some request", "some root", "some activity", "some sponsor".
    static std::shared_ptr<ActivityContext> SomeContext(int traceDepth, int serviceDepth);

    /// What was logged as plain text, without the severities.
    std::vector<std::string> MessageTexts() { return Log().MessageTexts(); }

    Metrics::Context m_context{0, Metrics::Context::Create(true)};
    RefCntPtr<RecordingListener> m_events = Listen();
};

// ---- What a scope sends

/// The calling thread's id, at the end of a scope.
EventContent ThreadIdEvent();

/// The six pairs with which a scope tells its identity.
Metrics::NameValueList ContextPairs(const ActivityContext& context);

/// The figures of a scope in which nothing is tracked.
EventContent ZeroMemory();
EventContent ZeroCpu();

/// That an exception ended the scope.
EventContent StackUnwind();

// ---- The calling thread

/// 0 when there is none.
uint64 CurrentMetricsContext();

/// Null when nothing is measured.
const corvala::memory::ThreadMemoryCounters* CurrentMemoryFrame();

}  // namespace tarn::test
