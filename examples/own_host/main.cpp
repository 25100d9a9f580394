// The library on a custom host: the program has no part of the embedded one in it. What the
// library needs stands behind its declarations in the three Host*.cpp files.
#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

int main() {
    const tarn::TracingSession session;
    const tarn::ActivityScope load("load", {{"path", "/etc/hosts"}});
    tarn::ActivityScope parse("parse");
    parse.Add({{"lines", 12}});
}
