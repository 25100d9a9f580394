#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

/// When in a scope's life an event is written. Any other value counts as `None`.
enum class ActivityPhase : int32 { Begin = 0, End = 1, None = 2 };

/// One kind of activity event: its name, how the names of its events begin, and its phase. A
/// record.
struct TARN_EXPORT ActivitySchema {
    TString name;
    TString prefix;
    ActivityPhase phase;

    ActivitySchema(const TString& schemaName,
                   const TString& eventNamePrefix,
                   ActivityPhase eventPhase);
};
