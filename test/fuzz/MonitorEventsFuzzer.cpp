// Streams of events, possible and impossible ones: the monitor keeps its counts in order, throws
// nothing but what its header says, and traces a fresh scope as if nothing had been.
#include "Input.h"
#include "JsonReader.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/CorvalaException.h"

#include <nlohmann/json.hpp>
#include <string>

namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using nlohmann::json;

class ParsingSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        last = tarn::test::ReadJsonLine(TLog::FormatJsonLine(TLog::Info, event, {}));
        const std::string type = last.at("activity").at("type");
        fuzz::Require(type == "begin" || type == "end", "an activity begins or ends");
        ++lines;
    }

    json last;
    int lines = 0;
};

void SetOptions(fuzz::Input& input) {
    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetIsForegroundThreadContextEnabled(input.Flag());
    OptTarn::SetShouldLogTransparent(input.Flag());
    OptTarn::SetIsTarnPlatforms(input.Flag());
    OptTarn::SetIsServer(input.Flag());
    OptTarn::SetShouldLogResourceTracking(input.Flag());
}

void ExpectFreshScopeIsTraced(MetricsMonitor& monitor, ParsingSink& sink) {
    constexpr uint64 context = 1000;
    constexpr uint64 scope = 2000;
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    MetricsEvent event;
    event.flags = Metrics::flagTracing;
    const auto send = [&](MetricsEventType type, uint64 id, uint64 contextId) {
        event.type = type;
        event.id = id;
        event.contextId = contextId;
        monitor.OnMetricsEvent(event);
    };
    const uint64 openBefore = monitor.GetNumberOpenScopes();
    send(MetricsEventType::CreateContext, context, 0);
    send(MetricsEventType::OpenContext, context, 0);
    sink.lines = 0;
    event.name = "fresh";
    send(MetricsEventType::OpenScope, scope, context);
    fuzz::Require(sink.lines == 1 && sink.last.at("event") == "begin-fresh", "a scope begins");
    fuzz::Require(!sink.last.at("activity").contains("sponsor"), "a root has no sponsor");
    fuzz::Require(sink.last.at("attributes").size() == 2, "a new context has no attributes");
    fuzz::Require(monitor.GetNumberOpenScopesForContext(context) == 1, "an open scope counts");
    send(MetricsEventType::CloseScope, scope, context);
    fuzz::Require(sink.lines == 2 && sink.last.at("event") == "end-fresh", "a scope ends");
    fuzz::Require(monitor.GetNumberOpenScopesForContext(context) == 0, "a closed scope is gone");
    fuzz::Require(monitor.GetNumberOpenScopes() == openBefore, "a closed scope is forgotten");
    send(MetricsEventType::CloseContext, context, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    TLog::ReplaceBackEnd(nullptr);
    fuzz::Input input(data, size);
    SetOptions(input);
    auto* const sink = new ParsingSink;
    const RefCntPtr<MetricsMonitor> monitor(new MetricsMonitor(1));
    monitor->EnableTest(sink, new MonitorUUIDGenerator);
    MetricsEvent open;
    open.type = MetricsEventType::OpenContext;
    open.id = 1;
    monitor->OnMetricsEvent(open);

    for (int events = 0; events < 500 && !input.IsAtEnd(); ++events) {
        const uint64 openBefore = monitor->GetNumberOpenScopes();
        const MetricsEvent event = input.Event();
        try {
            monitor->OnMetricsEvent(event);
        } catch (const LogicException&) {
            // Events that break a rule are answered like this.
        }
        const uint64 openNow = monitor->GetNumberOpenScopes();
        fuzz::Require(openNow <= openBefore + 1 && openBefore <= openNow + 1,
                      "an event opens or closes one scope at the most");
    }
    ExpectFreshScopeIsTraced(*monitor, *sink);
    return 0;
}
