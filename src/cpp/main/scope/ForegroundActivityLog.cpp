#include "ForegroundActivityLog.h"

#include "tarn/ActivityContext.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"

namespace tarn::ForegroundActivityLog {
namespace {

constexpr TLog::NonErrorSeverity severity(TLog::Info);

bool IsWritten() {
    return OptTarn::GetShouldLogForegroundActivity() && TLog::Logger::Get().IsEnabled(severity);
}

}  // namespace

void WriteContext(const TString& verb, const TString& scopeName, const ActivityContext* context) {
    if (!IsWritten()) {
        return;
    }
    if (context == nullptr) {
        TLog::Logger::Get().LogMessage(severity,
                                       TFormatString(u"ActivityScope %1 name=%2 No ActivityContext")
                                           .Arg(verb)
                                           .Arg(scopeName)
                                           .ToString());
        return;
    }
    TLog::Logger::Get().LogMessage(
        severity,
        TFormatString(u"ActivityScope %1 name=%2, id=%3, rootId=%4, traceDepth=%5, serviceDepth=%6")
            .Arg(verb)
            .Arg(scopeName)
            .Arg(context->GetActivityId())
            .Arg(context->GetRootId())
            .Arg(context->GetTraceDepth())
            .Arg(context->GetServiceDepth())
            .ToString());
}

void WriteMessage(const TString& text) {
    if (IsWritten()) {
        TLog::Logger::Get().LogMessage(severity, text);
    }
}

}  // namespace tarn::ForegroundActivityLog
