// The session is C++, the work that is traced is C.
#include "work.h"

#include "tarn/Session.h"

int main() {
    const tarn::Session session;
    Work();
}
