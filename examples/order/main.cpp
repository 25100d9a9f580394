#include "tarn/Session.h"
#include "tarn/Trace.h"

#include <chrono>
#include <thread>

void Pay(int card) {
    tarn::Scope pay("pay", {{"card", card}});
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    pay.Fail("declined", {{"limit", 100}});
}

int main() {
    tarn::SessionOptions options;
    options.user = "ada";
    const tarn::Session session(options);

    const tarn::Scope order("order", {{"item", 3}});
    {
        const tarn::Scope price("price");
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    Pay(7028);
}
