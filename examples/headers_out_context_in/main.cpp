// An activity that goes on in another service: the caller writes headers, the callee goes on with
// the activity that they name, and says for whom. Headers that are wrong are refused.
#include "tarn/ActivityTracer.h"
#include "tarn/Headers.h"
#include "tarn/Session.h"

#include "cvlsys/TAllocate.h"

#include <iostream>
#include <map>
#include <string>

namespace {

using Headers = std::map<std::string, std::string>;

/// The callee's side. Headers come from outside: what no caller would have written is refused, and
/// the request begins a tree of its own.
void Serve(const Headers& headers, const std::string& user) {
    const tarn::Scope serve(tarn::Extract(headers, {{"user", user}, {"req-desc", "GET /prices"}}),
                            "serve");
    const tarn::Scope lookup("lookup");
    TFree(TMalloc(504));
}

}  // namespace

int main() {
    tarn::SessionOptions options;
    options.memory = tarn::MemoryFigures::All;
    options.extras = true;  // lines name the caller
    const tarn::Session session(options);

    Headers headers;
    {
        const tarn::Scope call("call");
        tarn::Inject(headers);
    }
    for (const auto& header : headers) {
        std::cout << header.first << std::endl;
    }
    Serve(headers, "ada");

    Serve({{"corvala-trace-id", "\r\nSet-Cookie: x"}, {"corvala-extra-depth", "99999999999"}},
          "bob");
    std::cout << "refused headers: " << tarn::ActivityTracer::GetRefusedHeaders() << std::endl;
}
