#include "HttpService.h"

#include "ActivityNames.h"
#include "RequestParameters.h"

#include "tarn/ActivityScope.h"
#include "tarn/Prometheus.h"

#include <stdexcept>
#include <sys/socket.h>
#include <utility>

namespace packagesearch {

namespace {

constexpr const char* loopback = "127.0.0.1";
constexpr std::size_t largestBody = 16 << 10;

constexpr std::size_t longestPath = 512;

// Clients that send slowly, or not at all, keep a thread no longer than this.
constexpr std::chrono::seconds socketTimeout{5};

// How often the listening thread looks whether it should stop while nobody comes.
constexpr std::chrono::milliseconds idleInterval{20};

/// The HTTP server's threads. The server is stopped by its own listening thread, which is the one
/// that calls these two operations: nobody closes a socket that another thread is waiting on.
class StoppablePool : public httplib::TaskQueue {
public:
    StoppablePool(std::size_t threads, const std::atomic<bool>& stopping, httplib::Server& server)
        : m_pool(threads),
          m_stopping(stopping),
          m_server(server) {}

    void enqueue(std::function<void()> work) override {
        m_pool.enqueue(std::move(work));
        on_idle();
    }

    void on_idle() override {
        if (m_stopping) {
            m_server.stop();
        }
    }

    void shutdown() override { m_pool.shutdown(); }

private:
    httplib::ThreadPool m_pool;
    const std::atomic<bool>& m_stopping;
    httplib::Server& m_server;
};

// The server's own default lets two processes listen on one port.
void SetSocketOptions(socket_t socket) {
    const int yes = 1;
    static_cast<void>(setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
}

}  // namespace

HttpService::HttpService(HttpOptions options, const SearchRoutes& routes)
    : m_options(std::move(options)),
      m_routes(routes) {
    Configure();
    Bind();
    // The port is bound and listens: who connects from now on is served.
    m_listener = std::thread([this] { m_server.listen_after_bind(); });
}

HttpService::~HttpService() {
    Stop();
}

void HttpService::Stop() {
    m_stopping = true;
    if (m_listener.joinable()) {
        m_listener.join();
    }
}

void HttpService::Configure() {
    m_server.new_task_queue = [this] {
        return new StoppablePool(m_options.clients, m_stopping, m_server);
    };
    m_server.set_socket_options(SetSocketOptions);
    m_server.set_idle_interval(idleInterval);
    m_server.set_read_timeout(socketTimeout);
    m_server.set_write_timeout(socketTimeout);
    m_server.set_payload_max_length(largestBody);
    // One request for each connection: an idle one would keep a thread from serving others, and
    // the service from stopping.
    m_server.set_keep_alive_max_count(1);

    m_server.set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            return IsRefused(request, response) ? httplib::Server::HandlerResponse::Handled
                                                : httplib::Server::HandlerResponse::Unhandled;
        });
    // What is at a path is decided within the request's scope, so all other paths are one to
    // the server.
    const auto serve = [this](const httplib::Request& request, httplib::Response& response) {
        Serve(request, response);
    };
    // A monitoring system asks again and again; that work is not traced.
    m_server.Get("/metrics", [this](const httplib::Request&, httplib::Response& response) {
        response.set_content(tarn::PrometheusText(), tarn::prometheusContentType);
        ++m_answered;
    });
    m_server.Get(".*", serve).Post(".*", serve);
    m_server.set_error_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            ServeRefusal(request, response);
        });
}

void HttpService::Bind() {
    if (m_options.port == 0) {
        m_port = m_server.bind_to_any_port(loopback);
    } else if (m_server.bind_to_port(loopback, m_options.port)) {
        m_port = m_options.port;
    }
    if (m_port <= 0) {
        throw std::runtime_error("port " + std::to_string(m_options.port) + " of " + loopback +
                                 " cannot be listened on; another program may have it");
    }
}

void HttpService::Serve(const httplib::Request& request, httplib::Response& response) {
    RequestScope scope(request, m_options.site);
    HttpAnswer answer;
    try {
        answer = Work(request, scope);
    } catch (...) {
        answer = AnswerFailure(scope, std::current_exception());
    }
    scope.Add(attribute::status, std::to_string(answer.status));
    Send(answer, scope.TraceId(), response);
    ++m_answered;
}

HttpAnswer HttpService::Work(const httplib::Request& request, const RequestScope& scope) const {
    const tarn::ActivityScope work(activity::answer);
    const WorkLimits limits{Deadline::In(ReadTimeout(request, m_options.deadline)),
                            m_options.slowAfter};
    return {200, m_routes.Answer(request, scope.Attributes(), limits)};
}

// Before the body is read: without a length the server would wait for its end, which is when the
// client hangs up, and a long path would be too much for the server's regular expressions.
bool HttpService::IsRefused(const httplib::Request& request, httplib::Response& response) {
    const bool isPost = request.method == "POST";
    if (request.path.size() > longestPath) {
        response.status = 414;
    } else if (!isPost && request.method != "GET" && request.method != "HEAD") {
        response.status = 405;
    } else if (isPost && !request.has_header("Content-Length")) {
        response.status = 411;
    } else {
        return false;
    }
    ServeRefusal(request, response);
    return true;
}

// Called for every answer that is an error, our own ones too; those have a text already.
void HttpService::ServeRefusal(const httplib::Request& request, httplib::Response& response) {
    if (!response.body.empty()) {
        return;
    }
    RequestScope scope(request, m_options.site);
    const HttpAnswer answer = AnswerRefusal(scope, response.status);
    scope.Add(attribute::status, std::to_string(answer.status));
    Send(answer, scope.TraceId(), response);
    ++m_answered;
}

}  // namespace packagesearch
