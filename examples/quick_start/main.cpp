// A program that traces itself: scopes, what they say, and how they fail.
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include <stdexcept>
#include <string>

namespace {

int Parse(const std::string& text) {
    TARN_SCOPE_FUNCTION("length", text.size());
    if (text.empty()) {
        throw std::invalid_argument("nothing to parse");
    }
    tarn::Current().Add("first", text.front());
    return static_cast<int>(text.size());
}

}  // namespace

int main() {
    const tarn::Session session;

    tarn::Scope load("load", {{"path", "/etc/hosts"}});
    load.Add("parsed", Parse("127.0.0.1"));
    try {
        Parse("");
    } catch (const std::exception& error) {
        load.FailException(error);
    }
}
