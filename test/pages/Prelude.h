#pragma once

// What the statements of the pages take for granted: values of the host's, and an open scope.

#include "tarn/ActivityName.h"
#include "tarn/ActivityScope.h"
#include "tarn/Trace.h"
#include "tarn/TracingSession.h"

#include <stdexcept>
#include <string>

namespace {

const std::string path = "/etc/hosts";
const int size = 220;
const int lines = 12;
const double seconds = 0.5;
const int retries = 2;
const std::runtime_error error("broken");

}  // namespace
