#pragma once

#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

#include "cvlmetrics/Context.h"

#include <httplib.h>
#include <string>

namespace tutorial {

/// Tracing for as long as the process serves. Make one at the beginning of main.
class Tracing {
public:
    explicit Tracing(const std::string& logFile);
    ~Tracing();
    Tracing(const Tracing&) = delete;
    Tracing& operator=(const Tracing&) = delete;

private:
    std::unique_ptr<tarn::TracingSession> m_session;
};

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
