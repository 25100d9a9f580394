// Activity events in a custom form: a sink that draws them instead of logging them.
#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

#include <iostream>
#include <memory>

namespace {

/// Called for one event at a time, so it needs no lock of its own.
class DrawingSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        const std::string name = event.GetName().ToUtf8();
        const bool ends = name.compare(0, 4, "end-") == 0;
        m_depth -= ends ? 1 : 0;
        std::cout << std::string(2 * m_depth, ' ') << (ends ? "< " : "> ")
                  << name.substr(name.find('-') + 1) << '\n';
        m_depth += ends ? 0 : 1;
    }

private:
    std::size_t m_depth = 0;
};

}  // namespace

int main() {
    const tarn::TracingSession session;
    // At any time, also while other threads trace.
    session.GetMonitor().SetSink(std::make_unique<DrawingSink>());

    const tarn::ActivityScope load("load");
    { const tarn::ActivityScope read("read"); }
    const tarn::ActivityScope parse("parse");
}
