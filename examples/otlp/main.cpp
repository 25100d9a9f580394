// Activities as spans, to a receiver of OpenTelemetry's protocol; here one that only counts.
#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"
#include "tarn/otlp/Exporter.h"

#include <atomic>
#include <chrono>
#include <httplib.h>
#include <iostream>
#include <thread>

int main() {
    httplib::Server receiver;
    std::atomic<int> requests{0};
    receiver.Post("/v1/traces", [&](const httplib::Request&, httplib::Response& response) {
        ++requests;
        response.set_content("", "application/x-protobuf");
    });
    const int port = receiver.bind_to_any_port("127.0.0.1");
    std::thread server([&] { receiver.listen_after_bind(); });

    {
        const tarn::TracingSession session;
        // Without an argument the environment says where to: OTEL_EXPORTER_OTLP_ENDPOINT.
        tarn::otlp::Options options;
        options.url = "http://127.0.0.1:" + std::to_string(port) + "/v1/traces";
        options.serviceName = "example";
        tarn::otlp::Exporter exporter(options);
        session.GetMonitor().SetSink(exporter.MakeSink());

        for (int count = 0; count < 3; ++count) {
            const tarn::ActivityScope load("load");
            const tarn::ActivityScope parse("parse");
        }

        const bool isDone = exporter.Shutdown(std::chrono::seconds(20));
        const tarn::otlp::Statistics statistics = exporter.GetStatistics();
        std::cout << "all sent: " << (isDone ? "yes" : "no") << ", spans: " << statistics.sent
                  << ", lost: " << statistics.Dropped()
                  << ", received: " << (requests > 0 ? "yes" : "no") << '\n';
    }
    receiver.stop();
    server.join();
}
