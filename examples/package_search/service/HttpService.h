#pragma once

#include "HttpAnswer.h"
#include "SearchRoutes.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <httplib.h>
#include <string>
#include <thread>

namespace packagesearch {

struct HttpOptions {
    int port = 0;                              ///< 0: any that is free
    std::size_t clients = 8;                   ///< requests that are served at once; more wait
    std::chrono::milliseconds deadline{2000};  ///< for a request that names none, or a later one
    std::chrono::milliseconds slowAfter{100};
    std::string site = "packages";
};

/// Serves HTTP on the loopback interface, from construction until `Stop` or destruction. Threads of
/// the HTTP server read requests, open the scope of each, wait for workers and peers, and send the
/// answers; all that is traced ends before `Stop` returns. GET /metrics is answered with what the
/// process has counted, and not traced.
class HttpService {
public:
    /// Throws `std::runtime_error` with one line when the port is not free. The routes must
    /// outlive the object.
    HttpService(HttpOptions options, const SearchRoutes& routes);
    ~HttpService();

    HttpService(const HttpService&) = delete;
    HttpService& operator=(const HttpService&) = delete;

    int Port() const noexcept { return m_port; }

    /// Takes no more requests and waits for those that are being served. On the thread that made
    /// the object; a second call does nothing.
    void Stop();

    /// How many were answered, whatever with.
    std::uint64_t RequestsAnswered() const noexcept { return m_answered.load(); }

private:
    void Configure();
    void Bind();
    void Serve(const httplib::Request& request, httplib::Response& response);
    void ServeRefusal(const httplib::Request& request, httplib::Response& response);
    bool IsRefused(const httplib::Request& request, httplib::Response& response);
    HttpAnswer Work(const httplib::Request& request, const RequestScope& scope) const;

    HttpOptions m_options;
    const SearchRoutes& m_routes;
    httplib::Server m_server;
    std::atomic<bool> m_stopping{false};
    std::atomic<std::uint64_t> m_answered{0};
    int m_port = 0;
    std::thread m_listener;
};

}  // namespace packagesearch
