#include "MonitorTest.h"

#include "tarn/OptTarn.h"

#include <stdexcept>

namespace tarn::test {

void MonitorTest::SetUp() {
    TarnTest::SetUp();
    OptTarn::SetIsTarnEnabled(true);
    monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(rootContext));
    monitor->EnableTest(new CapturingSink(events), new KnownIds(idsMade));
    Send(EventBuilder::OpenContext(rootContext));
}

void MonitorTest::TearDown() {
    monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingOff);
    monitor = {};
    TarnTest::TearDown();
}

void MonitorTest::Send(const Metrics::MetricsEvent& event) {
    monitor->OnMetricsEvent(event);
}

void MonitorTest::Open(uint64 id, const std::string& name, const Metrics::NameValueList& pairs) {
    OpenIn(rootContext, id, name, pairs);
}

void MonitorTest::Close(uint64 id) {
    CloseIn(rootContext, id);
}

void MonitorTest::OpenIn(uint64 contextId,
                         uint64 id,
                         const std::string& name,
                         const Metrics::NameValueList& pairs) {
    Send(EventBuilder::OpenScope(id, name).In(contextId).With(pairs));
}

void MonitorTest::CloseIn(uint64 contextId, uint64 id) {
    Send(EventBuilder::CloseScope(id).In(contextId));
}

void MonitorTest::OpenContext(uint64 id, uint64 parent) {
    Send(EventBuilder::CreateContext(id, parent));
    Send(EventBuilder::OpenContext(id));
}

void MonitorTest::EnableForegroundContexts() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
}

void MonitorTest::ReportResources(corvala::memory::MemoryTrackingMode mode) {
    OptTarn::SetIsTarnPlatforms(true);
    OptTarn::SetIsUnitTest(true);
    monitor->OverrideMemoryTrackingModeForTest(mode);
}

const TLog::Event& MonitorTest::LastEvent() const {
    if (events->empty()) {
        throw std::logic_error("no event has reached the sink");
    }
    return events->back();
}

std::vector<std::string> MonitorTest::EventNames() const {
    std::vector<std::string> names;
    for (const TLog::Event& event : *events) {
        names.push_back(event.GetName().ToUtf8());
    }
    return names;
}

ForegroundPairs::operator Metrics::NameValueList() const {
    // Texts as wide values, the way scopes send them.
    const auto wide = [](const std::string& text) { return Metrics::MetricsValue(TString(text)); };
    return {{wide("traceDepth"), traceDepth},
            {wide("sDepth"), serviceDepth},
            {wide("__root__"), wide(root)},
            {wide("activityId"), wide(own)},
            {wide("sponsorId"), wide(sponsor)},
            {wide("rid"), wide(request)}};
}

}  // namespace tarn::test
