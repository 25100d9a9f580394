#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TString.h"

namespace TLog {

/// The activity that a message of the log belongs to.
struct MessageActivity {
    TString id;
    TString root;  ///< of the top of its tree
};

/// Finds the calling thread's; false where nothing is current. It is called on each thread that
/// logs a message, must not log anything itself, and may throw `std::bad_alloc`.
using MessageActivityFunction = bool (*)(MessageActivity& activity);

/// With a function, the lines of messages that JSON back ends write have a field more, `activity`
/// with `id` and `root`, where the function finds something. Null, as at first: no line has it. Any
/// thread may call it at any time.
CVLCOREPLATFORM_API void SetMessageActivityFunction(MessageActivityFunction function) noexcept;

}  // namespace TLog
