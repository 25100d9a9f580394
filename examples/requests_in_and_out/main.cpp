// A request that another process serves: the client writes headers, the server reads them, and the
// server's scope goes on with the client's tree. Then one from a system that knows the headers of
// the W3C only, and one whose headers are wrong.
#include "tarn/Headers.h"
#include "tarn/Session.h"

#include <future>
#include <httplib.h>
#include <iostream>
#include <thread>

namespace {

void Serve(const httplib::Request& request, httplib::Response& response) {
    const tarn::Scope serve(tarn::Extract(request), "serve", {{"path", request.path}});
    httplib::Headers onwards;
    tarn::Inject(onwards);
    response.set_content(onwards.find("traceparent")->second, "text/plain");
}

}  // namespace

int main() {
    tarn::SessionOptions options;
    options.extras = true;  // lines name the caller
    const tarn::Session session(options);

    httplib::Server server;
    server.Get("/prices", Serve);
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread([&server] { server.listen_after_bind(); });
    httplib::Client client("127.0.0.1", port);

    {
        const tarn::Scope call("call");
        httplib::Headers headers;
        tarn::Inject(headers);
        client.Get("/prices", headers);
    }
    const auto answer =
        client.Get("/prices",
                   {{"traceparent", "00-4bf92f3577b34da6a3ce929d0e0e4736-00f067aa0ba902b7-00"},
                    {"tracestate", "vendor=value"}});
    // The same trace, not sampled, and a new parent.
    std::cout << answer->body.substr(0, 36) << "..." << answer->body.substr(52) << std::endl;
    client.Get("/prices", {{"traceparent", "00-00000000000000000000000000000000-zz-00"}});

    server.stop();
    thread.join();
}
