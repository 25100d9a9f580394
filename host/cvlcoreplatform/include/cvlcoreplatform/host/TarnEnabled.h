#pragma once

#include "cvlcoreplatform/Export.h"

/// Asks the function that was given to `CorePlatformOptions::SetIsTarnEnabledFunction` whether
/// tracing is on; false while there is none. Any thread may call it. What the function throws goes
/// to the caller.
CVLCOREPLATFORM_API bool IsTarnEnabled();
