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
    try {
        OptTarn::CountWithCmon(OptTarn::GetMetricsMonitorRequestContextsClosedConst());
    } catch (...) {  // NOLINT(bugprone-empty-catch): the host's callback failed; the request ends
                     // all the same
    }
}

}  // namespace tarn
