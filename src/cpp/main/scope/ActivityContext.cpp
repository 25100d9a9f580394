#include "tarn/ActivityContext.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"

#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlcoreplatform/TUUID.h"

#include <utility>

namespace tarn {
namespace {

TString ToIdText(const TUUID& id) {
    return id.ToString(TUUIDFormatOption::UpperHyphenated);
}

/// The id of every activity while foreground thread contexts are disabled.
const TString& FixedId() {
    static const NeverDestroyed<TString> id(
        ToIdText(TUUID(TString(u"00000000-0000-0000-0000-00000000000A"))));
    return id.Get();
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const TString& madeAtLoad = FixedId();

}  // namespace

ActivityContext::ActivityContext()
    : m_requestId(TarnMetricsUtils::DefaultStringAttributeValue()),
      m_activityId(NewTarnId()),
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
      m_activityId(NewTarnId()),
      m_rootId(child.parent.m_rootId),
      m_sponsorId(child.parent.m_activityId),
      m_traceDepth(child.traceDepth),
      m_serviceDepth(child.serviceDepth) {}

TString ActivityContext::NewTarnId() {
    return OptTarn::GetIsForegroundThreadContextEnabled()
               ? ToIdText(MonitorUUIDGenerator().CreateUUID())
               : FixedId();
}

}  // namespace tarn
