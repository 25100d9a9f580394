#include "Tracing.h"

#include "tarn/ActivityTokens.h"
#include "tarn/ActivityTracer.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"

namespace tutorial {

tarn::SessionOptions Options(const std::string& logFile) {
    tarn::SessionOptions options;
    options.log = logFile;
    options.delivery = tarn::Delivery::Asynchronous;  // no request waits for the log
    options.saveOnCrash = true;                       // nor is what waits lost in a crash
    options.cpu = true;
    options.memory = tarn::MemoryFigures::All;
    return options;
}

IncomingRequest::About::About(const httplib::Request& request)
    : m_context(0, Metrics::Context::Create(true)) {
    m_context.OpenScope();
    const std::string user = request.get_header_value("X-User");
    if (!user.empty()) {
        Metrics::AttributeImpl(ActivityTokens::userAttr, user, Metrics::flagTracing);
    }
    Metrics::AttributeImpl(ActivityTokens::requestDescription,
                           request.method + " " + request.path,
                           Metrics::flagTracing);
}

IncomingRequest::IncomingRequest(const httplib::Request& request)
    : m_about(request),
      m_serve("serve",
              tarn::CustomContext(Metrics::NameValueList()),
              tarn::Traits(),
              {},
              tarn::ActivityTracer::ExtractContext(
                  request.get_header_value(tarn::ActivityTracer::traceIdHeader),
                  request.get_header_value(tarn::ActivityTracer::extraDepthHeader))
                  .value_or(tarn::ActivityContextInitializer())) {}

namespace {

class HeaderCarrier : public tarn::ICarrier {
public:
    explicit HeaderCarrier(httplib::Headers& headers) : m_headers(headers) {}

    void Set(const TString& name, const TString& value) override {
        m_headers.emplace(name.ToUtf8(), value.ToUtf8());
    }

private:
    httplib::Headers& m_headers;
};

}  // namespace

httplib::Headers OutgoingHeaders(const std::string& user) {
    httplib::Headers headers{{"X-User", user}};
    HeaderCarrier carrier(headers);
    tarn::ActivityTracer::injectContext(carrier);
    return headers;
}

}  // namespace tutorial
