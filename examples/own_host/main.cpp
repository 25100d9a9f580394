// The library on a custom host: the program has no part of the embedded one in it. The three
// Host*.cpp files define what the library declares and needs.
#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

int main() {
    const tarn::TracingSession session;
    const tarn::ActivityScope load("load", {{"path", "/etc/hosts"}});
    tarn::ActivityScope parse("parse");
    parse.Add({{"lines", 12}});
}
