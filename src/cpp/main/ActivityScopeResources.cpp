// Memory and processor time that a scope uses.
#include "ActivityTokenText.h"
#include "LogicAssert.h"

#include "tarn/ActivityScope.h"

namespace tarn {
namespace {

constexpr const char* sourceFile = "src/cpp/main/ActivityScope";

}  // namespace

void ActivityScope::InitializeResourceTracking() {
    if (m_off || !m_trackResources) {
        return;
    }
    if (m_memoryScope.IsMade()) {
        RaiseLogicAssert(sourceFile, 484, "!m_memoryScope", 0x592EEA0E);
    }
    m_cpuScope.Make(m_cpuTime);
    m_memoryScope.Make(&m_memoryCounter);
}

void ActivityScope::ReleaseResources() {
    if (!m_trackResources && (m_memoryScope.IsMade() || m_cpuScope.IsMade())) {
        RaiseLogicAssert(
            sourceFile, 249, "m_trackResources || (!m_memoryScope && !m_cpuScope)", 0xDDDE9A38);
    }
    m_memoryScope.End();
    m_cpuScope.End();
}

void ActivityScope::EmitResourceStats() {
    if (m_off || !m_scope.IsOpen()) {
        return;
    }
    const TokenStrings& tokens = Tokens();

    // The end event always carries both allocation figures: zeroes when nothing is tracked.
    uint64 allocated = 0;
    uint32 allocatedCount = 0;
    const auto mode = corvala::memory::GetMemoryTrackingMode();
    if (mode == corvala::memory::MemoryTrackingAllocations ||
        mode == corvala::memory::MemoryTrackingAll) {
        allocated = m_memoryCounter.Allocated();
        allocatedCount = m_memoryCounter.AllocatedCount();
    }
    constexpr auto list = Metrics::MetricsEventType::NameValuePairs;
    if (mode == corvala::memory::MemoryTrackingAll) {
        m_scope.MultiEmit(
            list,
            tokens.memoryAttrsName,
            {{tokens.deallocatedInclusiveAttr, m_memoryCounter.Deallocated()},
             {tokens.deallocatedCountInclusiveAttr, m_memoryCounter.DeallocatedCount()},
             {tokens.allocatedPeakAttr, m_memoryCounter.AllocatedPeakUsed()},
             {tokens.allocatedInclusiveAttr, allocated},
             {tokens.allocatedCountInclusiveAttr, allocatedCount}});
    } else {
        m_scope.MultiEmit(list,
                          tokens.memoryAttrsName,
                          {{tokens.allocatedInclusiveAttr, allocated},
                           {tokens.allocatedCountInclusiveAttr, allocatedCount}});
    }
    m_scope.MultiEmit(list,
                      tokens.cpuAttrsName,
                      {{tokens.cpuTimeKernelInclusiveAttr, m_cpuTime.kernel},
                       {tokens.cpuTimeUserInclusiveAttr, m_cpuTime.user}});
}

}  // namespace tarn
