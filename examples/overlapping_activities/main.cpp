// Activities that overlap on one thread, as in an event loop: each begins, waits, goes on and ends
// when it is its turn, in any order.
#include "tarn/ActivityHandOver.h"
#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TracingSession.h"

#include <memory>

namespace {

/// Untracked: what the thread does in between would be measured for it, too. In a metrics context
/// of its own: scopes of one context must end in the reverse order of their beginnings, or the log
/// loses their ends and those of all scopes around them.
class Download {
public:
    explicit Download(const char* file)
        : m_run(
              tarn::ActivityHandOver(), "download", tarn::TraceType::Untracked, {{"file", file}}) {
        m_run.DetachFromThread();
    }

    /// What happens meanwhile belongs to this download.
    void GoOn() {
        m_run.AttachToThread();
        { const tarn::ActivityScope chunk("chunk"); }
        m_run.DetachFromThread();
    }

private:
    tarn::ActivityHandOver::Run m_run;
};

}  // namespace

int main() {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const tarn::TracingSession session;
    const tarn::ActivityScope loop("loop");

    auto first = std::make_unique<Download>("first");
    auto second = std::make_unique<Download>("second");
    second->GoOn();
    first->GoOn();
    first.reset();
    second->GoOn();
    second.reset();
}
