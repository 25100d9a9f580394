#pragma once

#include "tarn/ActivityContext.h"
#include "tarn/Export.h"
#include "tarn/ICarrier.h"

#include <memory>

namespace tarn {

/// Takes the calling thread's current activity across a process boundary. Holds nothing; any
/// thread.
class TARN_EXPORT ActivityTracer {
public:
    /// Null when the thread has no current activity.
    static std::shared_ptr<ActivityContext> GetCurrentActivityContext();

    /// Writes the header "corvala-trace-id" ("ROOT:ROOT:0") and then "corvala-extra-depth" (the
    /// trace depth). Nothing while foreground thread contexts are disabled or no activity is
    /// current.
    static void injectContext(ICarrier& carrier);
};

}  // namespace tarn
