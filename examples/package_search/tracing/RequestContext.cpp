#include "RequestContext.h"

#include "tarn/ActivityTokens.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/TSystem.h"

#include <atomic>

namespace packagesearch {

namespace {

void Tell(const wchar_t* token, const std::string& value) {
    if (!value.empty()) {
        Metrics::AttributeImpl(token, value, Metrics::flagTracing);
    }
}

}  // namespace

std::string NewRequestId() {
    static std::atomic<unsigned> count{0};
    return std::to_string(TSystem::ProcessID()) + "-" + std::to_string(++count);
}

RequestContext::RequestContext(const RequestAttributes& attributes)
    : m_context(0, Metrics::Context::Create(true)) {
    m_context.OpenScope();
    Tell(ActivityTokens::ridAttr,
         attributes.requestId.empty() ? NewRequestId() : attributes.requestId);
    Tell(ActivityTokens::userAttr, attributes.user);
    Tell(ActivityTokens::siteAttr, attributes.site);
    Tell(ActivityTokens::sidAttr, attributes.sessionId);
    Tell(ActivityTokens::requestDescription, attributes.description);
}

}  // namespace packagesearch
