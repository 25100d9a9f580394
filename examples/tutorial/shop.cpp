// The shop: asks the stock how many there are, and a thread of its own for the price.
// Usage: shop PORT STOCK_PORT
#include "Tracing.h"

#include "tarn/Trace.h"

#include <chrono>
#include <cstdlib>
#include <future>
#include <httplib.h>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

int Price(int item) {
    tarn::Current().Add("item", item);
    std::this_thread::sleep_for(std::chrono::milliseconds(4));  // a slow tax office
    return 5 * item;
}

std::string AskStock(int port, const std::string& item, const std::string& user) {
    tarn::Scope scope("ask-stock", {{"item", item}});
    httplib::Client stock("127.0.0.1", port);
    const auto answer = stock.Get("/stock?item=" + item, tutorial::OutgoingHeaders(user));
    if (!answer) {
        scope.Fail("no answer", {{"port", port}});
        throw std::runtime_error("the stock does not answer");
    }
    if (answer->status != 200) {
        scope.Fail("refused", {{"status", answer->status}});
        throw std::runtime_error(answer->body);
    }
    return answer->body;
}

void Order(const httplib::Request& request, httplib::Response& response, int stockPort) {
    tarn::Scope serve(tutorial::SenderOf(request), "serve");
    const std::string item = request.get_param_value("item");
    tarn::Scope order("order", {{"item", item}});
    try {
        const std::string left = AskStock(stockPort, item, request.get_header_value("X-User"));
        auto price = std::async(std::launch::async, tarn::Wrap("price", Price), std::stoi(item));
        response.set_content(std::to_string(price.get()) + " euros, " + left + " left\n",
                             "text/plain");
    } catch (const std::exception& error) {
        order.FailException(error);
        serve.Fail("500");
        response.status = 500;
        response.set_content(std::string(error.what()) + "\n", "text/plain");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const tarn::Session session(tutorial::Options("shop.log"));
    const int stockPort = std::atoi(argv[2]);
    httplib::Server server;
    server.Get("/order", [stockPort](const httplib::Request& request, httplib::Response& response) {
        Order(request, response, stockPort);
    });
    server.Get("/stop", [&server](const auto&, auto&) { server.stop(); });
    return server.listen("127.0.0.1", std::atoi(argv[1])) ? 0 : 1;
}
