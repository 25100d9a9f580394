// The session is C++, the work that is traced is C.
#include "work.h"

#include "tarn/OptTarn.h"
#include "tarn/TracingSession.h"

int main() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const tarn::TracingSession session;
    Work();
}
