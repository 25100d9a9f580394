#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"

#include <map>
#include <memory>
#include <string>

namespace tarn {

class ActivityScope;

/// An activity driven by strings alone, for bridges from other languages and processes. It owns
/// one untracked scope, from construction until `Close` or destruction; afterwards every
/// operation does nothing. It belongs to one thread, as the scope does.
class TARN_EXPORT ActivityContextProxy {
public:
    using Attributes = std::map<TString, TString>;

    /// Begins the activity. With foreground thread contexts enabled and "__root__" among the
    /// context attributes, the activity takes over the context that they describe ("rid",
    /// "__root__", "activityId", "sponsorId", "depth", "sDepth"; ids that are missing are empty,
    /// depths that are no numbers are 0), and these six are no attributes. Else it becomes a
    /// child of the thread's current activity.
    ActivityContextProxy(const std::string& name,
                         const Attributes& activityAttributes,
                         const Attributes& contextAttributes);
    ~ActivityContextProxy();
    ActivityContextProxy(const ActivityContextProxy&) = delete;
    ActivityContextProxy& operator=(const ActivityContextProxy&) = delete;

    void AttachToThread();
    void DetachFromThread();

    /// Ends the activity.
    void Close();

    void Cancel(const Attributes& attributes);

    /// Reports a failure: `reason` becomes the result key.
    void Fail(const TString& reason, const Attributes& attributes);

    /// Reports an exception as the failure.
    void FailException(const TString& type, const TString& message);

    void PutActivityAttributes(const Attributes& attributes);

    /// Attributes that hold until the activity ends.
    void PutContextAttributes(const Attributes& attributes);

private:
    std::unique_ptr<ActivityScope> m_scope;
};

}  // namespace tarn
