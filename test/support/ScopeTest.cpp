#include "ScopeTest.h"

#include "MetricsText.h"

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

std::vector<std::string> ScopeTest::MessageTexts() {
    std::vector<std::string> texts;
    for (const auto& [severity, text] : Log().Messages()) {
        texts.push_back(text);
    }
    return texts;
}

std::string ThreadIdEvent() {
    return "NameValue L\"tid\"=" + std::to_string(TSystem::ThreadID());
}

std::string ContextPairs(const ActivityContext& context) {
    return "L\"traceDepth\"=" + std::to_string(context.GetTraceDepth()) +
           ", L\"sDepth\"=" + std::to_string(context.GetServiceDepth()) +
           ", L\"__root__\"=" + Wide(context.GetRootId()) +
           ", L\"activityId\"=" + Wide(context.GetActivityId()) +
           ", L\"sponsorId\"=" + Wide(context.GetSponsorId()) +
           ", L\"rid\"=" + Wide(context.GetRequestId());
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
