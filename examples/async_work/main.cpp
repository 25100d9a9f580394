// Work on other threads stays part of what started it: a task, and a timer that fires three times.
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include <functional>
#include <future>

int main() {
    const tarn::Session session;

    const tarn::Scope serve("serve");
    const auto square = [](int number) { return number * number; };
    std::async(std::launch::async, tarn::Wrap("square", square), 12).get();

    const std::function<void()> tick =
        tarn::Wrap("tick", [] { tarn::Current().Add("on time", true); });
    for (int i = 0; i < 3; ++i) {
        std::async(std::launch::async, tick).get();
    }
}
