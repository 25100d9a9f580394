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

// ---- What a proxy named "job" sends, as `Text` writes it

inline constexpr const char* opensJob = "OpenScope \"job\" {}";
inline constexpr const char* closesJob = "CloseScope \"job\"";
inline constexpr const char* popsLayer = "PostCloseScope \"job\" action 0";
inline constexpr const char* canceled =
    "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"early-termination\", L\"type\"=L\"canceled\"}";
inline constexpr const char* failedWithException =
    "NameValuePairs L\"resultAttrs\" {L\"rk\"=L\"exception\", L\"type\"=L\"T\", L\"msg\"=L\"M\"}";

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
    std::vector<std::string> Sent() {
        std::vector<std::string> texts = m_events->Texts();
        m_events->Clear();
        return texts;
    }
};

/// The same with foreground thread contexts enabled.
class ForegroundProxyTest : public ActivityContextProxyTest {
protected:
    ForegroundProxyTest() { SwitchForegroundContextsOn(); }
};

}  // namespace tarn::test
