// An activity that goes on in another service: the caller writes headers, the callee takes over
// the context that they describe.
#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/OptTarn.h"
#include "tarn/TracingSession.h"

#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"

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

std::string Find(const Headers& headers, const char* name) {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

/// The callee's side. Headers come from outside: what the caller's tracer would not have written is
/// refused, and the request begins a tree of its own.
void Serve(const Headers& headers) {
    const auto context =
        tarn::ActivityTracer::ExtractContext(Find(headers, tarn::ActivityTracer::traceIdHeader),
                                             Find(headers, tarn::ActivityTracer::extraDepthHeader));
    const tarn::ActivityScope serve("serve",
                                    tarn::CustomContext(Metrics::NameValueList()),
                                    tarn::Traits(),
                                    {{"path", "/prices"}},
                                    context.value_or(tarn::ActivityContextInitializer()));
    const tarn::ActivityScope lookup("lookup");
    TFree(TMalloc(504));
}

}  // namespace

int main() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    OptTarn::SetIsTarnPlatforms(true);  // end events carry the figures
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
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

    Serve({{"corvala-trace-id", "\r\nSet-Cookie: x"}, {"corvala-extra-depth", "99999999999"}});
    std::cout << "refused headers: " << tarn::ActivityTracer::GetRefusedHeaders() << std::endl;
}
