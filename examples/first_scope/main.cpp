#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

int main() {
    const tarn::TracingSession session;
    const tarn::ActivityScope load("load", {{"path", "/etc/hosts"}});
    tarn::ActivityScope parse("parse", {{"lines", 12}});
    parse.Add({{"skipped", 3}});
}
