#include "Tracing.h"

namespace tutorial {

tarn::SessionOptions Options(const std::string& logFile) {
    tarn::SessionOptions options;
    options.log = logFile;
    options.delivery = tarn::Delivery::Asynchronous;  // no request waits for the log
    options.saveOnCrash = true;                       // nor is what waits lost in a crash
    options.cpu = true;
    options.memory = tarn::MemoryFigures::All;
    options.extras = true;  // lines have numbers, and name who started the activity
    return options;
}

tarn::Handoff SenderOf(const httplib::Request& request) {
    return tarn::Extract(request,
                         {{"user", request.get_header_value("X-User")},
                          {"req-desc", request.method + " " + request.path}});
}

httplib::Headers OutgoingHeaders(const std::string& user) {
    httplib::Headers headers{{"X-User", user}};
    tarn::Inject(headers);
    return headers;
}

}  // namespace tutorial
