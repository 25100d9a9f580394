// How many spans a second one processor makes and sends: events of real scopes with three
// attributes through the exporter, to a receiver in another process that reads and drops what it
// gets. Figures are processor time of this process, all threads together.
//
// Usage: tarn_otlp_benchmark [ROUNDS]
#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"
#include "tarn/otlp/Exporter.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using tarn::otlp::Encoding;
using tarn::otlp::Options;

constexpr int spansPerRound = 20'000;

class KeepingSink : public IMetricsMonitorSink {
public:
    explicit KeepingSink(std::vector<TLog::Event>& events) : m_events(events) {}

    void Log(const TLog::Event& event) override { m_events.push_back(event); }

private:
    std::vector<TLog::Event>& m_events;
};

/// Answers each request with 200 as soon as it is read.
void Receive(int listener) {
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    for (;;) {
        const int connection = accept(listener, nullptr, nullptr);
        std::string head;
        std::vector<char> piece(1 << 20);
        std::size_t rest = 0;
        for (ssize_t count = 0; (count = read(connection, piece.data(), piece.size())) > 0;) {
            auto size = static_cast<std::size_t>(count);
            if (rest == 0) {
                head.append(piece.data(), size);
                const std::size_t end = head.find("\r\n\r\n");
                if (end == std::string::npos) {
                    continue;
                }
                const std::size_t length = head.find("Content-Length: ");
                rest = std::stoul(head.substr(length + 16));
                size = head.size() - end - 4;
                head.clear();
            }
            rest -= size;
            if (rest == 0 && write(connection, answer.data(), answer.size()) < 0) {
                break;
            }
        }
        close(connection);
    }
}

class NullReceiver {
public:
    NullReceiver() {
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener, generic, length) != 0 || listen(listener, 8) != 0 ||
            getsockname(listener, generic, &length) != 0) {
            std::abort();
        }
        m_url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/v1/traces";
        m_process = fork();
        if (m_process == 0) {
            Receive(listener);
        }
        close(listener);
    }

    ~NullReceiver() {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }

    NullReceiver(const NullReceiver&) = delete;
    NullReceiver& operator=(const NullReceiver&) = delete;

    const std::string& Url() const { return m_url; }

private:
    pid_t m_process = -1;
    std::string m_url;
};

double ProcessorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void TraceScopes() {
    for (int count = 0; count < spansPerRound; ++count) {
        const tarn::ActivityScope scope(
            "query", {{"table", "orders"}, {"rows", "1200"}, {"source", "cache"}});
    }
}

void EndUnless(bool isGood, const char* what) {
    if (!isGood) {
        std::fprintf(stderr, "the measurement failed: %s\n", what);
        std::exit(1);
    }
}

void Print(const char* what, const std::vector<double>& seconds) {
    const double perSpan = Median(seconds) / spansPerRound;
    std::printf("| %s | %.2f | %.0f |\n", what, perSpan * 1e6, 1 / perSpan);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const int rounds = argumentCount > 1 ? std::atoi(arguments[1]) : 7;
    const NullReceiver receiver;
    const tarn::TracingSession session;
    std::vector<TLog::Event> events;
    std::printf("| | microseconds | spans a second of one processor |\n| --- | --- | --- |\n");

    struct Case {
        const char* name;
        Encoding encoding;
        bool gzip;
        bool withScopes;
    };

    for (const Case& it : {Case{"protobuf", Encoding::Protobuf, false, false},
                           Case{"protobuf, gzip", Encoding::Protobuf, true, false},
                           Case{"JSON", Encoding::Json, false, false},
                           Case{"JSON, gzip", Encoding::Json, true, false},
                           Case{"protobuf, and the scopes", Encoding::Protobuf, false, true}}) {
        std::vector<double> seconds;
        for (int round = 0; round < rounds; ++round) {
            // An event keeps what was made of it, so each round has events of its own.
            events.clear();
            if (!it.withScopes) {
                session.GetMonitor().SetSink(std::make_unique<KeepingSink>(events));
                TraceScopes();
            }
            Options options;
            options.url = receiver.Url();
            options.encoding = it.encoding;
            options.gzip = it.gzip;
            tarn::otlp::Exporter exporter(options);
            const auto sink = exporter.MakeSink();
            if (it.withScopes) {
                session.GetMonitor().SetSink(exporter.MakeSink());
            }

            const double begin = ProcessorSeconds();
            if (it.withScopes) {
                TraceScopes();
            }
            for (const TLog::Event& event : events) {
                sink->Log(event);
            }
            EndUnless(exporter.Shutdown(std::chrono::seconds(60)), "not all is sent");
            seconds.push_back(ProcessorSeconds() - begin);

            EndUnless(exporter.GetStatistics().sent == spansPerRound, "spans are missing");
            session.GetMonitor().SetSink(nullptr);
        }
        Print(it.name, seconds);
    }
}
