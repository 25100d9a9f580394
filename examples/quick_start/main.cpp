// A program that traces itself: scopes, what they say, and how they fail.
#include "tarn/OptTarn.h"
#include "tarn/Trace.h"
#include "tarn/TracingSession.h"

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
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const tarn::TracingSession session;

    tarn::Scope load("load", {{"path", "/etc/hosts"}});
    load.Add("parsed", Parse("127.0.0.1"));
    try {
        Parse("");
    } catch (const std::exception& error) {
        load.FailException(error);
    }
}
