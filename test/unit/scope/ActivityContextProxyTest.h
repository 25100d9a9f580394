#pragma once

#include "ScopeTest.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityContextProxy.h"
#include "tarn/ActivityTracer.h"
#include "tarn/OptTarn.h"

#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <string>
#include <vector>

namespace tarn::test {

// ---- What a proxy named "job" sends

inline EventContent OpensJob() {
    return Opens("job");
}

inline EventContent ClosesJob() {
    return Closes("job");
}

inline EventContent PopsLayer() {
    return PostCloses("job");
}

inline EventContent Canceled() {
    return SendsPairs(u"resultAttrs", {{u"rk", u"early-termination"}, {u"type", u"canceled"}});
}

inline EventContent FailedWithException() {
    return SendsPairs(u"resultAttrs", {{u"rk", u"exception"}, {u"type", u"T"}, {u"msg", u"M"}});
}

// ---- The outcome that the proxy's scope has in mind

int32 OutcomeOf(const ActivityContextProxy& proxy);

inline constexpr int32 statusNone = 0;
inline constexpr int32 statusFailed = 1;
inline constexpr int32 statusCanceled = 2;

// ---- Contexts

using ProxyAttributes = ActivityContextProxy::Attributes;

/// An activity as another process describes it.
inline ProxyAttributes AllSix() {
    return {{u"__root__", u"R"},
            {u"rid", u"Q"},
            {u"activityId", u"A"},
            {u"sponsorId", u"S"},
            {u"depth", u"3"},
            {u"sDepth", u"1"}};
}

inline ProxyAttributes operator+(ProxyAttributes a, const ProxyAttributes& b) {
    a.insert(b.begin(), b.end());
    return a;
}

inline std::shared_ptr<ActivityContext> Current() {
    return ActivityTracer::GetCurrentActivityContext();
}

/// request, root, activity, sponsor, trace depth, service depth
inline std::vector<std::string> Texts(const std::shared_ptr<ActivityContext>& context) {
    if (context == nullptr) {
        return {};
    }
    return {context->GetRequestId().ToUtf8(),
            context->GetRootId().ToUtf8(),
            context->GetActivityId().ToUtf8(),
            context->GetSponsorId().ToUtf8(),
            std::to_string(context->GetTraceDepth()),
            std::to_string(context->GetServiceDepth())};
}

/// Foreground thread contexts are disabled.
class ActivityContextProxyTest : public ScopeTest {
protected:
    /// What was sent since the last look.
    std::vector<EventContent> Sent() {
        std::vector<EventContent> contents = m_events->Contents();
        m_events->Clear();
        return contents;
    }
};

/// The same with foreground thread contexts enabled.
class ForegroundProxyTest : public ActivityContextProxyTest {
protected:
    ForegroundProxyTest() { SwitchForegroundContextsOn(); }
};

}  // namespace tarn::test
