#include "ActivityContextDerivation.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlsys/IntegerTypes.h"

namespace tarn {
namespace {

/// Adopted depths come from outside; one more than the largest wraps.
int OneDeeper(int depth) {
    return static_cast<int>(static_cast<uint32>(depth) + 1);
}

}  // namespace

std::shared_ptr<ActivityContext> DeriveActivityContext(
    const ActivityContextInitializer& initializer, TraceType type) {
    if (initializer.parent == nullptr) {
        return std::make_shared<ActivityContext>();
    }
    const ActivityContext& parent = *initializer.parent;
    if (initializer.adopt) {
        return std::make_shared<ActivityContext>(parent.GetRequestId(),
                                                 parent.GetRootId(),
                                                 parent.GetActivityId(),
                                                 parent.GetSponsorId(),
                                                 parent.GetTraceDepth(),
                                                 parent.GetServiceDepth());
    }
    const bool countsInDepths =
        type != TraceType::Transparent || OptTarn::GetShouldLogTransparent();
    const int traceDepth = parent.GetTraceDepth();
    const int serviceDepth = parent.GetServiceDepth();
    return std::make_shared<ActivityContext>(
        TarnMetricsUtils::DefaultStringAttributeValue(),
        parent.GetRootId(),
        ActivityContext::NewTarnId(),
        parent.GetActivityId(),
        countsInDepths ? OneDeeper(traceDepth) : traceDepth,
        countsInDepths ? OneDeeper(serviceDepth) : serviceDepth);
}

}  // namespace tarn
