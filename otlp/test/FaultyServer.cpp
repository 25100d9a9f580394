#include "FaultyServer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::string Lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char it) {
        return static_cast<char>(std::tolower(it));
    });
    return text;
}

void SendAll(int connection, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count =
            send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

// The other side sees a reset instead of an orderly end.
void Reset(int connection) {
    const linger atOnce{1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
}

}  // namespace

FaultyServer::FaultyServer(Handler handler, bool readsSlowly)
    : m_handler(std::move(handler)),
      m_readsSlowly(readsSlowly),
      m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, generic, length) != 0 || listen(m_listener, 64) != 0 ||
        getsockname(m_listener, generic, &length) != 0) {
        throw std::runtime_error("no port to listen on");
    }
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { Accept(); });
}

FaultyServer::~FaultyServer() {
    {
        const std::lock_guard lock(m_mutex);
        m_isOver = true;
        m_ends.notify_all();
        for (const int connection : m_open) {
            shutdown(connection, SHUT_RDWR);
        }
    }
    shutdown(m_listener, SHUT_RDWR);
    m_acceptor.join();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
    close(m_listener);
}

std::string FaultyServer::Url() const {
    return "http://127.0.0.1:" + std::to_string(m_port);
}

std::vector<FaultyServer::Request> FaultyServer::Requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

std::size_t FaultyServer::Count() const {
    const std::lock_guard lock(m_mutex);
    return m_requests.size();
}

void FaultyServer::Accept() {
    for (;;) {
        const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(m_mutex);
        if (connection < 0 || m_isOver) {
            if (connection >= 0) {
                close(connection);
            }
            return;
        }
        ++m_connections;
        m_open.push_back(connection);
        m_threads.emplace_back([this, connection] { Serve(connection); });
    }
}

void FaultyServer::Serve(int connection) {
    std::string rest;
    Request request;
    while (ReadRequest(connection, rest, request)) {
        std::unique_lock lock(m_mutex);
        m_requests.push_back(request);
        const Reaction reaction = m_handler(request, m_requests.size() - 1);
        if (reaction.kind == Reaction::Kind::Reset) {
            Reset(connection);
            break;
        }
        if (reaction.kind == Reaction::Kind::Hang) {
            m_ends.wait(lock, [this] { return m_isOver; });
            break;
        }
        if (m_ends.wait_for(lock, reaction.delay, [this] { return m_isOver; })) {
            break;
        }
        lock.unlock();
        std::string text = "HTTP/1.1 " + std::to_string(reaction.status) + " Said\r\n";
        for (const auto& [name, value] : reaction.headers) {
            text += name + ": " + value + "\r\n";
        }
        text += "Content-Length: " + std::to_string(reaction.body.size()) + "\r\n\r\n";
        SendAll(connection, text + reaction.body);
    }
    const std::lock_guard lock(m_mutex);
    m_open.erase(std::find(m_open.begin(), m_open.end(), connection));
    close(connection);
}

bool FaultyServer::ReadRequest(int connection, std::string& rest, Request& request) const {
    request = Request();
    std::size_t headEnd = std::string::npos;
    std::size_t whole = 0;
    for (;;) {
        if (headEnd == std::string::npos) {
            headEnd = rest.find("\r\n\r\n");
            if (headEnd != std::string::npos) {
                const std::string head = rest.substr(0, headEnd + 2);
                request.target = head.substr(head.find(' ') + 1);
                request.target.resize(request.target.find(' '));
                for (std::size_t line = head.find("\r\n") + 2; line < head.size();) {
                    const std::size_t end = head.find("\r\n", line);
                    const std::string text = head.substr(line, end - line);
                    const std::size_t colon = text.find(':');
                    const std::size_t value = text.find_first_not_of(' ', colon + 1);
                    request.headers[Lowered(text.substr(0, colon))] =
                        value == std::string::npos ? "" : text.substr(value);
                    line = end + 2;
                }
                whole = headEnd + 4 + std::stoul(request.headers["content-length"]);
            }
        }
        if (headEnd != std::string::npos && rest.size() >= whole) {
            request.body = rest.substr(headEnd + 4, whole - headEnd - 4);
            rest.erase(0, whole);
            return true;
        }
        char piece[65536];
        const std::size_t wanted = m_readsSlowly ? 1024 : sizeof(piece);
        if (m_readsSlowly) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const ssize_t count = recv(connection, piece, wanted, 0);
        if (count <= 0) {
            return false;
        }
        rest.append(piece, static_cast<std::size_t>(count));
    }
}

FaultyServer::Reaction Accepted() {
    return {};
}

FaultyServer::Reaction WithStatus(int status,
                                  std::vector<std::pair<std::string, std::string>> headers) {
    return {.status = status, .headers = std::move(headers)};
}
