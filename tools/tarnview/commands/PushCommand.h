#pragma once

#include "commands/Context.h"

#include "tarn/otlp/Options.h"

#include <string>

namespace tarnview {

struct PushOptions {
    InputOptions input;
    tarn::otlp::Options otlp;
    std::string checkpoint;  ///< a file; empty: everything is pushed
};

/// Sends the activities of logs that have ended to a receiver of OTLP, exactly as the library sends
/// them while they are written. Waits where the receiver wishes it. Returns exitNegative if the
/// receiver rejected some, exitInputOutput if it did not take a batch, after which nothing more is
/// sent. Throws `std::system_error` if a file cannot be read or written.
int RunPush(const PushOptions& options, Context& context);

}  // namespace tarnview
