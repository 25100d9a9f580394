#include "tarn/ThreadContextPropagator.h"

#include "ThreadActivityRegistry.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"

namespace tarn {
namespace {

TString DescribeCapture(const ActivityContext* context) {
    if (context == nullptr) {
        return u"ThreadContextPropagator::ThreadContextPropagator No ActivityContext";
    }
    return TFormatString(u"ThreadContextPropagator::ThreadContextPropagator id=%1 rootId=%2")
        .Arg(context->GetActivityId(), 0, u' ')
        .Arg(context->GetRootId(), 0, u' ')
        .ToString();
}

}  // namespace

ThreadContextPropagator::ThreadContextPropagator()
    : m_context(ThreadActivityRegistry::GetInstance().GetCurrentContext()) {
    if (OptTarn::GetShouldLogForegroundActivity()) {
        TLog::Logger& logger = TLog::Logger::Get();
        if (logger.IsEnabled(TLog::Info)) {
            logger.LogMessage(TLog::Info, DescribeCapture(m_context.get()));
        }
    }
}

}  // namespace tarn
