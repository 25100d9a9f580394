#include "cvlsys/MemoryTracking.h"

#include <iostream>
#include <memory>

int main() {
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    corvala::memory::MemoryCounter counter;
    {
        const corvala::memory::MemoryScope scope(&counter);
        const auto block = std::make_unique<char[]>(1000);
    }
    std::cout << "counted " << counter.AllocatedCount() << " allocation\n";
    return counter.AllocatedCount() == 1 && counter.Allocated() >= 1000 ? 0 : 1;
}
