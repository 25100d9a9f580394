#pragma once

#include "tarn/ActivityContext.h"
#include "tarn/Export.h"

#include <memory>

namespace tarn {

/// Takes the current activity along to another thread: construct it where the work is handed
/// over, copy it into the work, and give `GetContext()` to the first scope over there. A copy may
/// be read on any thread; the context stays alive as long as some copy holds it. `ActivityHandOver`
/// takes along what the log needs besides.
class TARN_EXPORT ThreadContextPropagator {
public:
    /// Captures the calling thread's current context.
    ThreadContextPropagator();

    ThreadContextPropagator(const ThreadContextPropagator&) = default;
    ThreadContextPropagator& operator=(const ThreadContextPropagator&) = default;
    ~ThreadContextPropagator() = default;

    /// Null when no activity was current.
    std::shared_ptr<ActivityContext> GetContext() const { return m_context; }

private:
    std::shared_ptr<ActivityContext> m_context;
};

}  // namespace tarn
