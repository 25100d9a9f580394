// What a session does can be changed without recompiling. The test runs this program with
//
//     TARN_OFF=tick TARN_EXTRAS=1 TARN_DELIVERY=async TARN_RANK=all TARN_CONFIG=tarn.conf
//
// where TARN_RANK is wrong, which the log says, and the file sets what the environment does not.
#include "tarn/Session.h"
#include "tarn/Trace.h"

int main() {
    tarn::SessionOptions options;
    options.user = "anna";
    options.off = {"load"};  // the environment says otherwise
    const tarn::Session session(options);

    const tarn::Scope load("load");
    for (int i = 0; i < 3; ++i) {
        const tarn::Scope tick("tick");
    }
    const tarn::Scope store("store");
}
