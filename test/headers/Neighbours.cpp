// A program that has names of its own where the library's other headers have theirs, and the macros
// of X11, before and after the front door.

class Metrics {
public:
    int count = 0;
};

class TString {};

class TLog {};

class OptTarn {};

class ActivityTokens {};

class MetricsMonitor {};

class TError {};

class LogicException {};

class TSystem {};

template <class T>
class RefCntPtr {};

typedef unsigned long long uint64;
typedef long long int64;
typedef unsigned uint32;
typedef int int32;
typedef unsigned char uint8;

// As X.h and Xlib.h have them.
#define None 0L
#define Always 2
#define Above 0
#define Below 1
#define Bool int
#define Status int
#define True 1
#define False 0
#define Success 0
#define Unsorted 0
#define Complex 0
#define Convex 2
#define Expose 12
#define KeyPress 2
#define KeyRelease 3
#define FocusIn 9
#define FocusOut 10
#define GrayScale 1
#define CursorShape 0
#define CurrentTime 0L
#define Absolute 0
#define Opposite 4
#define Visual struct VisualOfX
#define Screen struct ScreenOfX

// And of others that are in the way at times.
#define Scope ScopeOfSomebody
#undef Scope
#define min(a, b) ((a) < (b) ? (a) : (b))
#define max(a, b) ((a) > (b) ? (a) : (b))

#include "tarn/Coroutine.h"
#include "tarn/Headers.h"
#include "tarn/Session.h"
#include "tarn/Trace.h"

// They may come afterwards as well.
struct tarn_scope {};

struct tarn_attribute {};

struct Attribute {};

int UseAll(int argument);

int UseAll(int argument) {
    TARN_SCOPE("neighbours", "argument", argument);
    TARN_SCOPE_FUNCTION();
    tarn::Activity activity("activity", {{"true", True}});
    const tarn::Resumed resumed(activity);
    tarn::Scope scope("scope", tarn::TraceType::Untracked);
    scope.Add("status", Success);
    tarn::Current().Fail("reason");
    const Metrics metrics;
    const uint64 all = ~uint64{0};
    scope.Log({{"all", all}, {"count", metrics.count}});
    return tarn::Wrap("wrapped", [argument] { return argument; })();
}
