#include "ActivityContextDerivation.h"

#include "ContextAllocator.h"
#include "Depth.h"

#include "tarn/OptTarn.h"

namespace tarn {

std::shared_ptr<ActivityContext> DeriveActivityContext(const ActivityContext* parent,
                                                       bool adopt,
                                                       TraceType type) {
    const ContextAllocator<ActivityContext> allocator;
    if (parent == nullptr) {
        return std::allocate_shared<ActivityContext>(allocator);
    }
    if (adopt) {
        return std::allocate_shared<ActivityContext>(allocator, *parent);
    }
    const bool countsInDepths =
        type != TraceType::Transparent || OptTarn::GetShouldLogTransparent();
    const int traceDepth = parent->GetTraceDepth();
    const int serviceDepth = parent->GetServiceDepth();
    return std::allocate_shared<ActivityContext>(
        allocator,
        ActivityContext::ChildOf{*parent,
                                 countsInDepths ? OneDeeper(traceDepth) : traceDepth,
                                 countsInDepths ? OneDeeper(serviceDepth) : serviceDepth});
}

}  // namespace tarn
