#pragma once

#include "TarnTest.h"

#include "tarn/ActivityContext.h"

#include "cvlmetrics/Context.h"
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
    std::vector<std::string> MessageTexts();

    Metrics::Context m_context{0, Metrics::Context::Create(true)};
    RefCntPtr<RecordingListener> m_events = Listen();
};

// ---- What a scope sends, as `Text` writes it

/// The calling thread's id, at the end of a scope.
std::string ThreadIdEvent();

/// The six pairs with which a scope tells its identity, without the braces.
std::string ContextPairs(const ActivityContext& context);

inline constexpr const char* zeroMemory = "NameValuePairs L\"memoryAttrs\" {L\"ai\"=0, L\"ani\"=0}";
inline constexpr const char* zeroCpu = "NameValuePairs L\"cpuAttrs\" {L\"ki\"=0, L\"ui\"=0}";
inline constexpr const char* stackUnwind =
    "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"early-termination\", L\"type\"=\"stack-unwind\", "
    "L\"msg\"=\"an exception caused early termination, but the exception details are not "
    "accessible in this context.\"}";

// ---- The calling thread

/// 0 when there is none.
uint64 CurrentMetricsContext();

/// Null when nothing is measured.
const corvala::memory::ThreadMemoryCounters* CurrentMemoryFrame();

}  // namespace tarn::test
