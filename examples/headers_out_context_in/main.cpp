// An activity that goes on in another service: the caller writes headers, the callee takes over
// the context that they describe.
#include "tarn/ActivityContextProxy.h"
#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/OptTarn.h"
#include "tarn/TracingSession.h"

#include <iostream>
#include <map>
#include <string>

namespace {

using Headers = std::map<std::string, std::string>;

/// The caller's side: what an HTTP client of the host would do.
class HeaderCarrier : public tarn::ICarrier {
public:
    explicit HeaderCarrier(Headers& headers) : m_headers(headers) {}

    void Set(const TString& name, const TString& value) override {
        m_headers[name.ToUtf8()] = value.ToUtf8();
    }

private:
    Headers& m_headers;
};

/// The callee's side: the root stands before the first colon; the activity is one deeper.
void Serve(const Headers& headers) {
    const std::string trace = headers.at("corvala-trace-id");
    const TString root(trace.substr(0, trace.find(':')));
    const int depth = std::stoi(headers.at("corvala-extra-depth")) + 1;
    tarn::ActivityContextProxy activity("serve",
                                        {{u"path", u"/prices"}},
                                        {{u"rid", u"-"},
                                         {u"__root__", root},
                                         {u"activityId", tarn::ActivityContext::NewTarnId()},
                                         {u"sponsorId", root},
                                         {u"depth", TString::number(depth)},
                                         {u"sDepth", u"1"}});
    const tarn::ActivityScope lookup("lookup");
}

}  // namespace

int main() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const tarn::TracingSession session;

    Headers headers;
    {
        const tarn::ActivityScope call("call");
        HeaderCarrier carrier(headers);
        tarn::ActivityTracer::injectContext(carrier);
    }
    for (const auto& [name, value] : headers) {
        std::cout << name << ": " << value << std::endl;
    }
    Serve(headers);
}
