#include "tarn/ActivityTracer.h"

#include "ThreadActivityRegistry.h"

#include "tarn/OptTarn.h"

namespace tarn {

ICarrier::~ICarrier() = default;

std::shared_ptr<ActivityContext> ActivityTracer::GetCurrentActivityContext() {
    return ThreadActivityRegistry::GetInstance().GetCurrentContext();
}

void ActivityTracer::injectContext(ICarrier& carrier) {
    if (!OptTarn::GetIsForegroundThreadContextEnabled()) {
        return;
    }
    const std::shared_ptr<ActivityContext> context = GetCurrentActivityContext();
    if (context == nullptr) {
        return;
    }
    // The root stands twice, and the last field is always 0: receivers expect this form.
    const TString separator(u":");
    const TString rootId = context->GetRootId();
    carrier.Set(u"corvala-trace-id",
                rootId + separator + rootId + separator + TString::number(0, 10, 0, u' '));
    carrier.Set(u"corvala-extra-depth", TString::number(context->GetTraceDepth(), 10, 0, u' '));
}

}  // namespace tarn
