#include "RequestContextAttributes.h"

#include "OptTarnInternal.h"

#include "tarn/OptTarn.h"

namespace tarn {

RequestContextAttributes::RequestContextAttributes() {
    OptTarn::IncrementCorvalaCounterRequestContextsCreated();
    OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorRequestContextsCreatedConst());
}

RequestContextAttributes::~RequestContextAttributes() {
    OptTarn::IncrementCorvalaCounterRequestContextsClosed();
    OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorRequestContextsClosedConst());
}

}  // namespace tarn
