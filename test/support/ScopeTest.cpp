#include "ScopeTest.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/TSystem.h"

namespace tarn::test {

ScopeTest::ScopeTest() {
    m_context.OpenScope();
    m_events->Clear();
}

void ScopeTest::SwitchForegroundContextsOn() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
}

std::shared_ptr<ActivityContext> ScopeTest::SomeContext(int traceDepth, int serviceDepth) {
    return std::make_shared<ActivityContext>(TString(u"some request"),
                                             TString(u"some root"),
                                             TString(u"some activity"),
                                             TString(u"some sponsor"),
                                             traceDepth,
                                             serviceDepth);
}

EventContent ThreadIdEvent() {
    return SendsValue(u"tid", TSystem::ThreadID());
}

Metrics::NameValueList ContextPairs(const ActivityContext& context) {
    return {{u"traceDepth", context.GetTraceDepth()},
            {u"sDepth", context.GetServiceDepth()},
            {u"__root__", context.GetRootId()},
            {u"activityId", context.GetActivityId()},
            {u"sponsorId", context.GetSponsorId()},
            {u"rid", context.GetRequestId()}};
}

EventContent ZeroMemory() {
    return SendsPairs(u"memoryAttrs", {{u"ai", 0}, {u"ani", 0}});
}

EventContent ZeroCpu() {
    return SendsPairs(u"cpuAttrs", {{u"ki", 0}, {u"ui", 0}});
}

EventContent StackUnwind() {
    return SendsPairs(u"resultAttrs",
                      {{u"rk", u"early-termination"},
                       {u"type", "stack-unwind"},
                       {u"msg",
                        "an exception caused early termination, but the exception details are not "
                        "accessible in this context."}});
}

uint64 CurrentMetricsContext() {
    return Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId();
}

const corvala::memory::ThreadMemoryCounters* CurrentMemoryFrame() {
    corvala::memory::ThreadMemoryCounters probe;
    auto* const current = corvala::memory::SwapPushMemoryCounters(&probe);
    corvala::memory::SwapPopMemoryCounters(current);
    return current;
}

}  // namespace tarn::test
