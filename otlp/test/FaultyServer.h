#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// A server of HTTP on a port of its own, that does to each request what a test wants. Each
/// connection has a thread; the destructor ends all of them.
class FaultyServer {
public:
    struct Request {
        std::map<std::string, std::string> headers;  ///< names in small letters
        std::string target;
        std::string body;
    };

    struct Reaction {
        enum class Kind {
            Answer,
            Reset,  ///< the connection is broken without an answer
            Hang,   ///< no answer, until the server ends
        };

        Kind kind = Kind::Answer;
        int status = 200;
        std::vector<std::pair<std::string, std::string>> headers{};
        std::string body{};
        std::chrono::milliseconds delay{0};
    };

    using Handler = std::function<Reaction(const Request& request, std::size_t number)>;

    /// `handler` is called by one thread at a time; `number` counts from 0. With `readsSlowly` the
    /// body is read in small pieces with pauses.
    explicit FaultyServer(Handler handler, bool readsSlowly = false);
    ~FaultyServer();

    FaultyServer(const FaultyServer&) = delete;
    FaultyServer& operator=(const FaultyServer&) = delete;

    std::string Url() const;

    /// All that have been read to their end.
    std::vector<Request> Requests() const;
    std::size_t Count() const;

    std::size_t Connections() const { return m_connections; }

private:
    void Accept();
    void Serve(int connection);
    bool ReadRequest(int connection, std::string& rest, Request& request) const;

    const Handler m_handler;
    const bool m_readsSlowly;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<std::size_t> m_connections{0};
    mutable std::mutex m_mutex;
    std::condition_variable m_ends;
    bool m_isOver = false;
    std::vector<Request> m_requests;
    std::vector<int> m_open;
    std::vector<std::thread> m_threads;
    std::thread m_acceptor;
};

/// Answers each with 200 and nothing more.
FaultyServer::Reaction Accepted();
FaultyServer::Reaction WithStatus(int status,
                                  std::vector<std::pair<std::string, std::string>> headers = {});
