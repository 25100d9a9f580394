#pragma once

#include "cvlcoreplatform/Export.h"

#include <functional>

/// What libraries tell the platform about themselves.
class CVLCOREPLATFORM_API CorePlatformOptions {
public:
    /// Keeps the function by which the platform asks whether tracing is on; an empty function
    /// takes it back. Any thread may call it, static initialisers too.
    static void SetIsTarnEnabledFunction(std::function<bool()> isTarnEnabled);
};
