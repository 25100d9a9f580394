#pragma once

#include "tarn/Headers.h"
#include "tarn/Session.h"

#include <httplib.h>
#include <string>

namespace tutorial {

/// What both services begin with: their log, and what is measured.
tarn::SessionOptions Options(const std::string& logFile);

/// Who has sent a request, and for whom it is: for the scope that serves it.
tarn::Handoff SenderOf(const httplib::Request& request);

/// What a request to another service has to carry.
httplib::Headers OutgoingHeaders(const std::string& user);

}  // namespace tutorial
