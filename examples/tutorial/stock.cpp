// The stock: knows how many there are of each item.
// Usage: stock PORT
#include "Tracing.h"

#include "tarn/Trace.h"

#include <cstdlib>
#include <httplib.h>
#include <map>
#include <stdexcept>
#include <string>

namespace {

int Lookup(const std::string& item) {
    static const std::map<std::string, int> items{{"1", 12}, {"2", 0}, {"3", 7}};
    tarn::Scope lookup("lookup", {{"item", item}});
    const auto found = items.find(item);
    if (found == items.end()) {
        lookup.Fail("no such item");
        throw std::out_of_range("no such item");
    }
    lookup.Add("left", found->second);
    return found->second;
}

void Stock(const httplib::Request& request, httplib::Response& response) {
    tarn::Scope serve(tutorial::SenderOf(request), "serve");
    try {
        response.set_content(std::to_string(Lookup(request.get_param_value("item"))), "text/plain");
    } catch (const std::exception& error) {
        serve.Fail("404");
        response.status = 404;
        response.set_content(error.what(), "text/plain");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    const tarn::Session session(tutorial::Options("stock.log"));
    httplib::Server server;
    server.Get("/stock", Stock);
    server.Get("/stop", [&server](const auto&, auto&) { server.stop(); });
    return server.listen("127.0.0.1", std::atoi(argv[1])) ? 0 : 1;
}
