#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// An activity that has ended, for those who count: what its end event says, without the event.
/// Lent for the time of a call.
struct FinishedActivity {
    enum class Outcome {
        Ok,
        EarlyTermination,  ///< canceled, or left by an exception
        Failed
    };

    const TString& name;
    Outcome outcome = Outcome::Ok;
    int64 nanoseconds = 0;  ///< from begin to end, by the clock of the bus

    // The activity's own figures, without those of activities within it: they add up over all
    // activities. Times are in microseconds. As differences they may be below 0.
    int64 userTime = 0;
    int64 kernelTime = 0;
    int64 allocatedBytes = 0;
    int64 allocations = 0;
};

/// Hears of each activity that has ended and is logged, as a monitor's sink does: in order, on the
/// threads that deliver metrics events, never two at once. It is told whatever becomes of the log.
class TARN_EXPORT IFinishedActivityListener {
public:
    IFinishedActivityListener() = default;
    IFinishedActivityListener(const IFinishedActivityListener&) = delete;
    IFinishedActivityListener& operator=(const IFinishedActivityListener&) = delete;

    virtual void OnFinished(const FinishedActivity& activity) noexcept = 0;

protected:
    // It is not owned by those who call it.
    ~IFinishedActivityListener() = default;
};

}  // namespace tarn
