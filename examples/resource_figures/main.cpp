// What scopes use: memory and processor time, for the scope itself and with what it calls.
#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TracingSession.h"

#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"

int main() {
    OptTarn::SetIsTarnPlatforms(true);  // end events carry the figures
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    corvala::cputime::SetCpuTrackingEnabled(true);
    const tarn::TracingSession session;

    const tarn::ActivityScope outer("outer");
    void* const kept = TMalloc(1'000);
    {
        const tarn::ActivityScope inner("inner");
        TFree(TMalloc(504));
    }
    TFree(kept);
}
