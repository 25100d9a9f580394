// A traced program. With TARN_DISABLE its object code is that of the same program without a trace,
// which it is without TRACED.
#if defined(TRACED)
#include "tarn/Trace.h"
#define IF_TRACED(...) __VA_ARGS__
#define WRAP(name, function) tarn::Wrap(name, function)
#else
#define IF_TRACED(...)
#define WRAP(name, function) (function)
#endif

int Compute(int number);
int Throw();

namespace {

struct Job {
    int number;
    IF_TRACED(tarn::Activity activity;)
};

}  // namespace

int Load(const char* path, unsigned long long size);

int Load(const char* path, unsigned long long size) {
    IF_TRACED(TARN_SCOPE("load", "path", path, "size", size, "never called", Throw());)
    IF_TRACED(TARN_SCOPE_FUNCTION();)
    IF_TRACED(tarn::Scope scope("scope", tarn::TraceType::Untracked, {{"path", path}});)
    IF_TRACED(scope.Add("size", size);)
    IF_TRACED(scope.Log({{"size", size}, {"path", path}});)
    IF_TRACED(scope.AddContext({{"user", path}});)
    if (size == 0) {
        IF_TRACED(scope.Fail("empty", {{"path", path}});)
        IF_TRACED(tarn::Current().Cancel();)
        return path[0];
    }
    Job job{3 IF_TRACED(, tarn::Activity("job"))};
    IF_TRACED(const tarn::Resumed resumed(job.activity);)
    IF_TRACED(const tarn::Handoff handoff;)
    IF_TRACED(const tarn::Scope inner(handoff, "inner");)
    IF_TRACED(tarn::Activity child = job.activity.Child("child");)
    IF_TRACED(child.End();)
    auto work = WRAP("work", [&job](int more) { return Compute(job.number + more); });
    return work(4);
}
