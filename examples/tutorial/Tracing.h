#pragma once

#include "tarn/ActivityScope.h"
#include "tarn/Session.h"

#include "cvlmetrics/Context.h"

#include <httplib.h>
#include <string>

namespace tutorial {

/// What both services begin with: their log, and what is measured.
tarn::SessionOptions Options(const std::string& logFile);

/// A request that has arrived. Make one where it is served, before anything else is traced.
class IncomingRequest {
public:
    explicit IncomingRequest(const httplib::Request& request);

private:
    class About {
    public:
        explicit About(const httplib::Request& request);

    private:
        Metrics::Context m_context;
    };

    About m_about;
    tarn::ActivityScope m_serve;
};

/// What a request to another service has to carry.
httplib::Headers OutgoingHeaders(const std::string& user);

}  // namespace tutorial
