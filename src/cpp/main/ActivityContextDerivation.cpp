#include "ActivityContextDerivation.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

namespace tarn {

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
    const int step = countsInDepths ? 1 : 0;
    return std::make_shared<ActivityContext>(TarnMetricsUtils::DefaultStringAttributeValue(),
                                             parent.GetRootId(),
                                             ActivityContext::NewTarnId(),
                                             parent.GetActivityId(),
                                             parent.GetTraceDepth() + step,
                                             parent.GetServiceDepth() + step);
}

}  // namespace tarn
