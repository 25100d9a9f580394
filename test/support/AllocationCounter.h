#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstddef>

// A program that uses one of these classes has its global operator new and delete replaced. All
// state is the calling thread's own: construct, use and destroy an object on one thread.
namespace tarn::test {

/// Counts what the calling thread allocates and releases with operator new and delete from here on.
/// Allocations that are made to fail are not counted. They may overlap.
class AllocationCounter {
public:
    AllocationCounter() noexcept;

    uint64 Allocations() const noexcept;
    uint64 Releases() const noexcept;

    /// As requested, without what the allocator adds.
    uint64 AllocatedBytes() const noexcept;

private:
    uint64 m_allocationsAtStart;
    uint64 m_releasesAtStart;
    uint64 m_bytesAtStart;
};

/// Makes one of the thread's coming allocations fail with `std::bad_alloc`, all others succeed.
/// One at a time.
class FailingAllocation {
public:
    /// 0 is the very next allocation.
    explicit FailingAllocation(uint64 number) noexcept;
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// False as long as there were not that many allocations.
    bool HasFailed() const noexcept;

    /// What the allocation that failed asked for.
    std::size_t FailedBytes() const noexcept;
};

/// While one exists, the thread's allocations fail from one on: as when there is no memory left.
/// Not together with `FailingAllocation`.
class MemoryThatRunsOut {
public:
    /// With 0 the very next allocation fails already.
    explicit MemoryThatRunsOut(uint64 allocationsLeft) noexcept;
    ~MemoryThatRunsOut();
    MemoryThatRunsOut(const MemoryThatRunsOut&) = delete;
    MemoryThatRunsOut& operator=(const MemoryThatRunsOut&) = delete;
};

/// While one exists, the thread's allocations are neither counted for the two above nor fail: for
/// what the test itself allocates in between. They nest.
class UnfailingAllocations {
public:
    UnfailingAllocations() noexcept;
    ~UnfailingAllocations();
    UnfailingAllocations(const UnfailingAllocations&) = delete;
    UnfailingAllocations& operator=(const UnfailingAllocations&) = delete;
};

/// While one exists, the thread's operator new and delete are charged to its memory frames, as in
/// a host that counts its own allocations. One at a time.
class ChargedAllocations {
public:
    ChargedAllocations() noexcept;
    ~ChargedAllocations();
    ChargedAllocations(const ChargedAllocations&) = delete;
    ChargedAllocations& operator=(const ChargedAllocations&) = delete;
};

}  // namespace tarn::test
