// Work that begins here and ends there: the jobs overlap and end in another order.
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include <map>

namespace {

class Builder {
public:
    void Start(int job) { m_running.emplace(job, tarn::Activity("job", {{"number", job}})); }

    void Finish(int job, int status) {
        if (status != 0) {
            m_running.at(job).Fail("exit status", {{"status", status}});
        }
        m_running.erase(job);
    }

private:
    std::map<int, tarn::Activity> m_running;
};

}  // namespace

int main() {
    const tarn::Session session;

    const tarn::Scope build("build");
    Builder builder;
    builder.Start(1);
    builder.Start(2);
    builder.Finish(1, 0);
    builder.Finish(2, 3);
}
