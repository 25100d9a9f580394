#pragma once

#include "tarn/ActivityContext.h"
#include "tarn/CustomContext.h"
#include "tarn/Export.h"
#include "tarn/Traits.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/MemoryTracking.h"

#include <initializer_list>
#include <list>
#include <memory>

namespace tarn {

class ActivityName;
class PairSource;

/// A timed piece of work, from construction to destruction. Make one on the stack where the work
/// begins:
///
///     tarn::ActivityScope scope("load", {{"path", path}});
///
/// The scope gets a context of its own, a child of the thread's current one, and is the thread's
/// current activity until it ends. Whether it is switched off (`TarnSettings`) is decided once,
/// at construction; a scope that is off does nothing for its whole life.
///
/// A scope belongs to the thread that built it, and scopes end in the reverse order of their
/// beginnings. When memory runs out, the constructors, `AttachToThread` and the operations that
/// take attributes throw `std::bad_alloc`.
///
/// Names are UTF-8; they and the attribute lists are used during the call only. A list that is
/// given away is empty afterwards. Attributes in braces, as above, are borrowed for the call;
/// nothing is copied unless a consumer receives the event.
class TARN_EXPORT ActivityScope {
public:
    /// Attributes in braces.
    using Attributes = std::initializer_list<Metrics::PairView>;

    explicit ActivityScope(const char* name);
    ActivityScope(const char* name, Attributes attributes);
    ActivityScope(const char* name, Metrics::NameValueList&& attributes);
    ActivityScope(const char* name, Traits traits);
    ActivityScope(const char* name, Traits traits, Attributes attributes);
    ActivityScope(const char* name, Traits traits, Metrics::NameValueList&& attributes);
    ActivityScope(const char* name, CustomContext&& context);
    ActivityScope(const char* name, CustomContext&& context, Metrics::NameValueList&& attributes);
    ActivityScope(const char* name, CustomContext&& context, Traits traits);
    ActivityScope(const char* name,
                  CustomContext&& context,
                  Traits traits,
                  Metrics::NameValueList&& attributes);

    /// Begins under a given context instead of the thread's current one.
    ActivityScope(const char* name,
                  CustomContext&& context,
                  Traits traits,
                  Metrics::NameValueList&& attributes,
                  const ActivityContextInitializer& initializer);

    /// The same with names that remember whether they are off (tarn/ActivityName.h).
    explicit ActivityScope(const ActivityName& name);
    ActivityScope(const ActivityName& name, Attributes attributes);
    ActivityScope(const ActivityName& name, Traits traits);
    ActivityScope(const ActivityName& name, Traits traits, Attributes attributes);

    ActivityScope(const ActivityScope&) = delete;
    ActivityScope& operator=(const ActivityScope&) = delete;

    /// Ends the scope. An exception that is under way and was not reported before is recorded as
    /// an early termination. Ends the process when a measured scope (any but an `Untracked` one,
    /// whether tracking is on or not) ends on another thread than it began on, or out of order; a
    /// line on standard error then says which scope it is and what to use instead.
    ~ActivityScope() noexcept;

    /// Adds attributes to the end event.
    void Add(Attributes attributes);
    void Add(Metrics::NameValueList&& attributes);

    /// Adds a log supplement: attributes with the time of the call.
    void Log(Attributes attributes);
    void Log(Metrics::NameValueList&& attributes);

    /// Marks the work as canceled, with more pairs that say why. The last report counts.
    void Cancel(Metrics::NameValueList&& attributes);

    /// Adds context attributes that hold until the scope ends; those whose names are mapped to
    /// attributes of the request hold until the request does.
    void AddContext(CustomContext&& context);

    /// Null for a scope that is off, and while foreground thread contexts are disabled.
    const std::shared_ptr<ActivityContext> GetActivityContext() const {
        return m_off ? nullptr : m_activityContext;
    }

    /// Makes the scope's contexts current on the calling thread, for work that moves there.
    void AttachToThread();

    /// Takes the scope's contexts off the calling thread.
    void DetachFromThread();

    const Traits& GetTraits() const noexcept { return m_traits; }

    /// What `TarnSettings` says.
    bool IsOff(const char* name) const;
    bool IsOff(TraceRank rank) const;
    bool IsEitherOff(TraceRank rank, const char* name) const;

    /// Whether tracing is enabled and somebody listens.
    static bool IsTarnEnabled();

    /// Names and values of results, for the pairs that a host gives to `Cancel` or to
    /// `ActivityContextProxy::Fail`.
    static const wchar_t* const canceledAttrToken;
    static const wchar_t* const earlyTerminationAttrToken;
    static const wchar_t* const errorCodeAttrToken;
    static const wchar_t* const errorSourceAttrToken;
    static const wchar_t* const errorStatusCodeAttrToken;
    static const wchar_t* const exceptionAttrToken;
    static const wchar_t* const messageAttrToken;
    static const wchar_t* const resultKeyAttrToken;
    static const wchar_t* const typeAttrToken;

private:
    friend class ActivityContextProxy;
    friend class ScopeAccess;

    // A scope that was found to be on, whose attributes are made if somebody wants them.
    [[gnu::visibility("hidden")]] ActivityScope(const char* name,
                                                Traits traits,
                                                const PairSource& attributes);

    // What measures, in the order in which it begins.
    struct Measurement {
        Measurement(corvala::cputime::ThreadTimeValue& time,
                    corvala::memory::MemoryCounter& counter)
            : cpu(time),
              memory(&counter) {}

        corvala::cputime::ThreadTimeScope cpu;
        corvala::memory::MemoryScope memory;
    };

    // What was reported of the outcome; anything but None suppresses the early termination.
    enum class Status : int32 { None = 0, Failed = 1, Canceled = 2 };

    // Decides, once, whether the scope is on; begins it then, by calling `begin`.
    template <class Name, class Begin>
    [[gnu::visibility("hidden")]] void BeginUnlessOff(const Name& name, const Begin& begin);
    template <class Begin>
    [[gnu::visibility("hidden")]] void BeginAsOn(const char* name, const Begin& begin);
    void End() noexcept;
    void EndParts() noexcept;

    // `Pairs` are lent, or made when they are wanted.
    template <class Pairs>
    [[gnu::visibility("hidden")]] void BeginScope(const char* name,
                                                  const Pairs& attributes,
                                                  const ActivityContext* parent,
                                                  bool adopt);
    template <class Pairs>
    [[gnu::visibility("hidden")]] void BeginScope(const char* name, const Pairs& attributes);
    void OpenMetricsScope(const char* name, Metrics::PairSpan attributes);
    [[gnu::visibility("hidden")]] void OpenMetricsScope(const char* name,
                                                        const PairSource& attributes);
    template <class Pairs>
    [[gnu::visibility("hidden")]] void OpenMetricsScopeWithContext(const char* name,
                                                                   const Pairs& attributes,
                                                                   const ActivityContext& context);
    void LeaveActivityContext();
    void ReportEarlyTermination();
    void ReleaseResources();

    void AddToScope(Metrics::PairSpan attributes);
    void AddLogToScope(Metrics::PairSpan attributes);
    void AddResultToScope(Metrics::NameValueList&& attributes);
    void SetCustomContext(Metrics::NameValueList&& attributes);

    void InitializeResourceTracking();
    void FinishMetricsScope() noexcept;

    static std::unique_ptr<Metrics::Context, Metrics::Context_deleter>
    CreateMetricsContextIfOneDoesNotAlreadyExist();

    // The order is that of construction; the metrics context goes last, behind its scope.
    std::unique_ptr<Metrics::Context, Metrics::Context_deleter> m_metricsContext;

    // A scope that is off has none of these.
    union {
        Metrics::Scope m_scope;
    };

    union {
        corvala::memory::MemoryCounter m_memoryCounter;
    };

    union {
        std::shared_ptr<ActivityContext> m_activityContext;
    };

    // Few scopes have any.
    union {
        std::unique_ptr<std::list<Metrics::MetricsCloseScopeActions>> m_postCloseEvents;
    };

    corvala::cputime::ThreadTimeValue m_cpuTime;

    // Constructed while `m_isMeasuring` is set: it ends before its owner.
    union {
        Measurement m_measurement;
    };

    uint64 m_threadAtBegin;
    bool m_isMeasuring = false;
    bool m_off = true;
    bool m_trackResources;
    Status m_status = Status::None;
    Traits m_traits;
};

}  // namespace tarn
