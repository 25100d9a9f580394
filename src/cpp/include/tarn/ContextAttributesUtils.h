#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"

namespace tarn {

/// Sets attributes of the calling thread's current metrics context, independent of scopes. The list
/// is always consumed. Nothing is sent if it is empty, if the thread has no metrics context, or if
/// nobody listens.
class TARN_EXPORT ContextAttributesUtils {
public:
    /// Attributes of the request that the context serves.
    static void Set(Metrics::NameValueList&& attributes);

    /// Attributes of the context; those whose names are mapped (`TarnSettings`) become attributes
    /// of the request instead.
    static void SetCustomContextAttributes(Metrics::NameValueList&& attributes);

private:
    friend class ActivityScope;
    static void SendAttributes(const TString& name, Metrics::NameValueList&& attributes);
};

}  // namespace tarn
