#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"

namespace tarn {

/// Gives attributes to the calling thread's current metrics context, outside any scope. The list
/// is consumed in every case; nothing is sent when it is empty, when the thread has no metrics
/// context, or when nobody listens.
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
