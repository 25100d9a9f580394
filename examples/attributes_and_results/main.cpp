// What a scope can say while it is open: attributes, supplements with their own times, and
// attributes of the request that it serves.
#include "tarn/ActivityScope.h"
#include "tarn/ContextAttributesUtils.h"
#include "tarn/TracingSession.h"

int main() {
    const tarn::TracingSession session;

    // Known from the start: in the begin event.
    tarn::ActivityScope import("import", {{"file", "prices.csv"}, {"size", 4096}});

    // Concerns the whole request: in every event from now on.
    tarn::ContextAttributesUtils::Set({{"user", "ada"}, {"wb", "Prices"}});

    // Known later: in the end event. A name that is added again keeps the latest value.
    import.Add({{ "rows", 100 }});
    import.Add({{"rows", 120}, {"ratio", 0.25}, { "complete", true }});

    // Worth a time of its own: in the list "logs" of the end event.
    import.Log({{ "step", "header read" }});
    import.Log({{"step", "rows read"}, { "rejected", 2 }});
}
