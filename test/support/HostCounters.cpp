#include "HostCounters.h"

#include "tarn/OptTarn.h"

#include <ostream>

namespace tarn::test {

namespace {

void SetNames(bool given) {
    const auto name = [given](const char* text) { return given ? std::string(text) : ""; };
    OptTarn::SetMetricsMonitorContextsCreatedConst(name("contextsCreated"));
    OptTarn::SetMetricsMonitorContextsClosedConst(name("contextsClosed"));
    OptTarn::SetMetricsMonitorRequestContextsCreatedConst(name("requestContextsCreated"));
    OptTarn::SetMetricsMonitorRequestContextsClosedConst(name("requestContextsClosed"));
    OptTarn::SetMetricsMonitorScopeOpenedConst(name("scopesOpened"));
    OptTarn::SetMetricsMonitorScopeClosedConst(name("scopesClosed"));
}

}  // namespace

HostCounters::HostCounters() {
    OptTarn::SetCorvalaCounterContextsCreated(&contextsCreated);
    OptTarn::SetCorvalaCounterContextsClosed(&contextsClosed);
    OptTarn::SetCorvalaCounterRequestContextsCreated(&requestContextsCreated);
    OptTarn::SetCorvalaCounterRequestContextsClosed(&requestContextsClosed);
    OptTarn::SetCorvalaCounterScopesOpened(&scopesOpened);
    OptTarn::SetCorvalaCounterScopesClosed(&scopesClosed);
    SetNames(true);
    OptTarn::SetCmonIncrementCounter([this](const std::string& name, uint64 amount) {
        const std::atomic<int64>& counter =
            name == "contextsCreated"          ? contextsCreated
            : name == "contextsClosed"         ? contextsClosed
            : name == "requestContextsCreated" ? requestContextsCreated
            : name == "requestContextsClosed"  ? requestContextsClosed
            : name == "scopesOpened"           ? scopesOpened
                                               : scopesClosed;
        calls.push_back({name, amount, counter.load()});
    });
}

HostCounters::~HostCounters() {
    OptTarn::SetCmonIncrementCounter([](const std::string&, uint64) {});
    SetNames(false);
    OptTarn::SetCorvalaCounterContextsCreated(nullptr);
    OptTarn::SetCorvalaCounterContextsClosed(nullptr);
    OptTarn::SetCorvalaCounterRequestContextsCreated(nullptr);
    OptTarn::SetCorvalaCounterRequestContextsClosed(nullptr);
    OptTarn::SetCorvalaCounterScopesOpened(nullptr);
    OptTarn::SetCorvalaCounterScopesClosed(nullptr);
}

std::vector<std::string> HostCounters::CalledNames() const {
    std::vector<std::string> names;
    for (const Call& call : calls) {
        names.push_back(call.name);
    }
    return names;
}

void PrintTo(const HostCounters::Call& call, std::ostream* out) {
    *out << call.name << " +" << call.amount << " (is at " << call.counterThen << ")";
}

}  // namespace tarn::test
