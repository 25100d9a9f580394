#include "tarn/Trace.h"
#include "tarn/TracingSession.h"

int main() {
    const tarn::TracingSession session;
    const tarn::Scope load("load", {{"path", "/etc/hosts"}});
    tarn::Scope parse("parse", {{"lines", 12}});
    parse.Add("skipped", 3);
}
