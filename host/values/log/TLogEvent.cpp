#include "cvlcoreplatform/TLogEvent.h"

#include "EventValues.h"
#include "TimeText.h"

#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/TSystem.h"
#include "cvlsys/host/RecycledBlocks.h"

#include <optional>
#include <string_view>
#include <utility>

namespace TLog {

struct ActivityInfo::Fields {
    EventTimePoint time;
    uint32 processId;
    uint64 threadId;
    TString sessionId;
    TString requestId;
    TString user;
    TString site;
    std::shared_ptr<Value> environment;
    std::shared_ptr<Value> activity;
    std::shared_ptr<Object> attributes;
    std::shared_ptr<Object> further = nullptr;
};

ActivityInfo::ActivityInfo(EventTimePoint time,
                           uint32 processId,
                           uint64 threadId,
                           TString sessionId,
                           TString requestId,
                           TString user,
                           TString site,
                           std::shared_ptr<Value> environment,
                           std::shared_ptr<Value> activity,
                           std::shared_ptr<Object> attributes)
    : m_fields(cvlsys::MakeRecycled<const Fields>(Fields{time,
                                                         processId,
                                                         threadId,
                                                         std::move(sessionId),
                                                         std::move(requestId),
                                                         std::move(user),
                                                         std::move(site),
                                                         std::move(environment),
                                                         std::move(activity),
                                                         std::move(attributes)})) {}

ActivityInfo::ActivityInfo(std::shared_ptr<const Fields> fields) noexcept
    : m_fields(std::move(fields)) {}

EventTimePoint ActivityInfo::GetTime() const noexcept {
    return m_fields->time;
}

uint32 ActivityInfo::GetProcessId() const noexcept {
    return m_fields->processId;
}

uint64 ActivityInfo::GetThreadId() const noexcept {
    return m_fields->threadId;
}

const TString& ActivityInfo::GetSessionId() const noexcept {
    return m_fields->sessionId;
}

const TString& ActivityInfo::GetRequestId() const noexcept {
    return m_fields->requestId;
}

const TString& ActivityInfo::GetUser() const noexcept {
    return m_fields->user;
}

const TString& ActivityInfo::GetSite() const noexcept {
    return m_fields->site;
}

const std::shared_ptr<Value>& ActivityInfo::GetEnvironment() const noexcept {
    return m_fields->environment;
}

const std::shared_ptr<Value>& ActivityInfo::GetActivity() const noexcept {
    return m_fields->activity;
}

const std::shared_ptr<Object>& ActivityInfo::GetAttributes() const noexcept {
    return m_fields->attributes;
}

const std::shared_ptr<Object>& ActivityInfo::GetFurtherFields() const noexcept {
    return m_fields->further;
}

ActivityInfo ActivityInfo::WithFurtherFields(std::shared_ptr<Object> fields) const {
    Fields extended = *m_fields;
    extended.further = std::move(fields);
    return ActivityInfo(cvlsys::MakeRecycled<const Fields>(std::move(extended)));
}

ActivityInfo ActivityInfoFactory::CreateActivityInfo(int64 time, const TString& requestId) {
    static const TString& none = *new const TString(u"-");
    return ActivityInfo(EventTimePoint(std::chrono::microseconds(time)),
                        TSystem::ProcessID(),
                        TSystem::ThreadID(),
                        none,
                        requestId == none ? TUUID::CreateUUID().ToString() : requestId,
                        none,
                        none,
                        nullptr,
                        nullptr,
                        nullptr);
}

Event::Event(TString name, std::shared_ptr<Object> body)
    : m_fields(cvlsys::MakeRecycled<const EventFields>(std::move(name),
                                                       EventValues{std::move(body), {}})) {}

Event::Event(TString name, std::shared_ptr<Object> body, ActivityInfo information)
    : m_fields(cvlsys::MakeRecycled<const EventFields>(
          std::move(name), EventValues{std::move(body), std::move(information)})) {}

Event::Event(std::shared_ptr<const EventFields> fields) noexcept : m_fields(std::move(fields)) {}

const TString& Event::GetName() const noexcept {
    return m_fields->GetName();
}

const std::shared_ptr<Object>& Event::GetBody() const {
    return m_fields->GetValues().body;
}

const ActivityInfo* Event::GetActivityInfo() const {
    const std::optional<ActivityInfo>& information = m_fields->GetValues().information;
    return information ? &*information : nullptr;
}

TString EventTimestamp::GetFormattedLocalValue() const {
    const cvlcoreplatform::TimeText text = cvlcoreplatform::FormatLocal(m_time);
    return TString::FromUtf8(text.View());
}

}  // namespace TLog
