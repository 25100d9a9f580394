// A server on Boost.Asio: each connection is a coroutine, and an activity from its beginning to its
// end; a handler that is posted belongs to what has posted it. Any number of threads may run it.
#include "tarn/Coroutine.h"
#include "tarn/Session.h"

#include <cstddef>
#include <iostream>
#include <string>
#include <thread>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

asio::awaitable<void> Serve(tcp::socket socket) {
    tarn::Activity serve("serve");
    const tarn::Resumed resumed(serve);
    std::string text(4, '\0');

    const std::size_t size = co_await tarn::AwaitTask(
        serve, asio::async_read(socket, asio::buffer(text), asio::use_awaitable));
    const auto executor = co_await asio::this_coro::executor;
    asio::post(executor, tarn::Wrap("log", [text] { tarn::Current().Add("text", text); }));
    {
        const tarn::Scope answer("answer", {{"size", size}});
        text = "pong";
    }
    co_await tarn::AwaitTask(serve,
                             asio::async_write(socket, asio::buffer(text), asio::use_awaitable));
}

std::string Ask(const tcp::endpoint& server) {
    asio::io_context context;
    tcp::socket socket(context);
    socket.connect(server);
    asio::write(socket, asio::buffer("ping", 4));
    std::string text(4, '\0');
    asio::read(socket, asio::buffer(text));
    return text;
}

}  // namespace

int main() {
    const tarn::Session session;

    asio::io_context context;
    tcp::acceptor acceptor(context, {asio::ip::make_address("127.0.0.1"), 0});
    acceptor.async_accept([&](const boost::system::error_code& error, tcp::socket socket) {
        if (!error) {
            asio::co_spawn(context, Serve(std::move(socket)), asio::detached);
        }
    });
    std::thread thread([&context] { context.run(); });
    const std::string answer = Ask(acceptor.local_endpoint());
    thread.join();
    std::cout << answer << std::endl;
}
