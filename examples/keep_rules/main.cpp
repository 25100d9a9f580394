// Of many requests only those are written that somebody will look at: the slow ones, those that
// failed, and all of one name. Each is written as a whole, with what went on within it; the others
// are counted. Without recompiling: TARN_KEEP="slow=500ms,failed,name=pay".
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include <chrono>
#include <thread>

namespace {

void Query(std::chrono::milliseconds duration) {
    const tarn::Scope scope("query");
    std::this_thread::sleep_for(duration);
}

}  // namespace

int main() {
    tarn::SessionOptions options;
    options.log = "stdout";
    options.keep.slow = std::chrono::milliseconds(500);
    options.keep.failed = true;
    options.keep.names = {"pay"};
    const tarn::Session session(options);

    for (int i = 0; i < 100; ++i) {
        const tarn::Scope fast("search");
        Query({});
    }
    {
        const tarn::Scope slow("report");
        Query(std::chrono::milliseconds(510));
    }
    {
        tarn::Scope failed("search");
        failed.Fail("index is missing");
    }
    const tarn::Scope pay("pay");
}
