#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <memory>
#include <ratio>

namespace TLog {

/// Wall-clock time in ticks of 100 nanoseconds since the epoch.
using EventTimePoint =
    std::chrono::time_point<std::chrono::system_clock,
                            std::chrono::duration<int64, std::ratio<1, 10000000>>>;

/// Says of an activity event when and where it happened and for whom. Immutable; copies share.
class CVLCOREPLATFORM_API ActivityInfo {
public:
    /// The three values may be null, which writes nothing for them.
    ActivityInfo(EventTimePoint time,
                 uint32 processId,
                 uint64 threadId,
                 TString sessionId,
                 TString requestId,
                 TString user,
                 TString site,
                 std::shared_ptr<Value> environment,
                 std::shared_ptr<Value> activity,
                 std::shared_ptr<Object> attributes);

    EventTimePoint GetTime() const noexcept;
    uint32 GetProcessId() const noexcept;
    uint64 GetThreadId() const noexcept;
    const TString& GetSessionId() const noexcept;
    const TString& GetRequestId() const noexcept;
    const TString& GetUser() const noexcept;
    const TString& GetSite() const noexcept;
    const std::shared_ptr<Value>& GetEnvironment() const noexcept;
    const std::shared_ptr<Value>& GetActivity() const noexcept;
    const std::shared_ptr<Object>& GetAttributes() const noexcept;

    /// Further fields beside the user and the site; null where there are none.
    const std::shared_ptr<Object>& GetFurtherFields() const noexcept;

    /// The same information with these further fields; those under a name that a line has by itself
    /// are not written. Throws `std::bad_alloc`.
    ActivityInfo WithFurtherFields(std::shared_ptr<Object> fields) const;

private:
    struct Fields;

    explicit ActivityInfo(std::shared_ptr<const Fields> fields) noexcept;

    std::shared_ptr<const Fields> m_fields;
};

/// Makes the information for an event of no activity in particular.
class CVLCOREPLATFORM_API ActivityInfoFactory {
public:
    /// `time` in microseconds since the epoch. A `requestId` of "-" gets a fresh random id
    /// instead. The texts that are not given are "-".
    static ActivityInfo CreateActivityInfo(int64 time, const TString& requestId);
};

/// What the host keeps of an event.
class EventFields;

/// One structured record: a name, a value, and for activity events the activity's information.
/// Immutable; copying one copies a pointer, so a sink may keep it.
class CVLCOREPLATFORM_API Event {
public:
    Event(TString name, std::shared_ptr<Object> body);
    Event(TString name, std::shared_ptr<Object> body, ActivityInfo information);

    /// For `MakeEvent`; never null.
    explicit Event(std::shared_ptr<const EventFields> fields) noexcept;

    const TString& GetName() const noexcept;

    // The values of an event that has a form are made when one of these is called first, on
    // whatever thread. Both throw `std::bad_alloc`.

    const std::shared_ptr<Object>& GetBody() const;

    /// Null for an event that belongs to no activity. Valid as long as some copy of the event.
    const ActivityInfo* GetActivityInfo() const;

    /// For the host, which knows what is in there.
    const EventFields& GetFields() const noexcept { return *m_fields; }

private:
    std::shared_ptr<const EventFields> m_fields;
};

/// A wall-clock time as text.
class CVLCOREPLATFORM_API EventTimestamp {
public:
    explicit EventTimestamp(EventTimePoint time) noexcept : m_time(time) {}

    /// In the time zone of the process with microseconds and offset:
    /// "2026-02-01T12:00:00.250000+01:00".
    TString GetFormattedLocalValue() const;

private:
    EventTimePoint m_time;
};

}  // namespace TLog
