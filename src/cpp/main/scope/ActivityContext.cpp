#include "tarn/ActivityContext.h"

#include "ActivityContextDerivation.h"
#include "ActivityTokenText.h"
#include "ContextAllocator.h"
#include "Depth.h"
#include "IdText.h"
#include "OptTarnInternal.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include <utility>

namespace tarn {
namespace {

/// The id of every activity while foreground thread contexts are disabled.
constexpr TUUID fixedId({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0A});

TUUID NewId() {
    return OptTarn::AreForegroundThreadContextsOn() ? TUUID::CreateUUID() : fixedId;
}

}  // namespace

ActivityContext::ActivityContext()
    : m_requestId(TarnMetricsUtils::DefaultStringAttributeValue()),
      m_activityId(NewId()),
      m_rootId(m_activityId),
      m_sponsorId(m_rootId),
      m_traceDepth(0),
      m_serviceDepth(0) {}

ActivityContext::ActivityContext(TString requestId,
                                 TString rootId,
                                 TString activityId,
                                 TString sponsorId,
                                 int traceDepth,
                                 int serviceDepth)
    : m_requestId(std::move(requestId)),
      m_activityId(std::move(activityId)),
      m_rootId(std::move(rootId)),
      m_sponsorId(std::move(sponsorId)),
      m_traceDepth(traceDepth),
      m_serviceDepth(serviceDepth) {}

ActivityContext::ActivityContext(const ChildOf& child)
    : m_requestId(NoText()),
      m_activityId(NewId()),
      m_rootId(child.parent.m_rootId),
      m_sponsorId(child.parent.m_activityId),
      m_traceDepth(child.traceDepth),
      m_serviceDepth(child.serviceDepth) {}

TString ActivityContext::NewTarnId() {
    return NewId().ToString(TUUIDFormatOption::UpperHyphenated);
}

TString ActivityContext::TextOf(const Id& id) {
    return IdText(id).ToString();
}

// In one piece: each scope passes here.
[[gnu::flatten]] std::shared_ptr<ActivityContext> DeriveActivityContext(
    const ActivityContext* parent, bool adopt, TraceType type) {
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
