#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <atomic>
#include <iostream>

namespace {

std::atomic<int64> s_scopesOpened{0};

}  // namespace

int main() {
    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetCorvalaCounterScopesOpened(&s_scopesOpened);

    const uint64 contextId = Metrics::Context::Create(true);
    const RefCntPtr<MetricsMonitor> monitor(new MetricsMonitor(contextId));
    monitor->Register(true);
    {
        Metrics::Context context(0, contextId);
        context.OpenScope();
        const tarn::ActivityScope scope("work");
    }
    monitor->Unregister();
    OptTarn::SetCorvalaCounterScopesOpened(nullptr);

    std::cout << "traced " << s_scopesOpened << " scope\n";
    return s_scopesOpened == 1 ? 0 : 1;
}
