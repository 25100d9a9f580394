// How work says that it did not succeed.
#include "tarn/ActivityContextProxy.h"
#include "tarn/ActivityScope.h"
#include "tarn/ExceptionParser.h"
#include "tarn/TracingSession.h"

#include <exception>
#include <stdexcept>

namespace {

void Work() {
    throw std::runtime_error("the disk is on fire");
}

void CancelOnPurpose() {
    tarn::ActivityScope scope("canceled");
    scope.Cancel({{"by", "the user"}});
}

void LeaveByException() {
    try {
        const tarn::ActivityScope scope("unwound");
        Work();
    } catch (const std::exception&) {
        // The scope has noted that it was left, but could not see by what.
    }
}

void ReportTheException() {
    tarn::ActivityContextProxy activity("reported", {}, {});
    try {
        Work();
    } catch (const std::exception& exception) {
        const tarn::ExceptionInfo info = tarn::ExceptionParser::ParseException(exception);
        activity.FailException(info.type, info.message);
    }
}

void FailWithAReason() {
    tarn::ActivityContextProxy activity("refused", {}, {});
    activity.Fail(u"quota", {{u"limit", u"100"}});
}

}  // namespace

int main() {
    const tarn::TracingSession session;
    const tarn::ActivityScope all("all");
    CancelOnPurpose();
    LeaveByException();
    ReportTheException();
    FailWithAReason();
}
