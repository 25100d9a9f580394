// Memory and processor time that a scope uses.
#include "ActivityTokenText.h"
#include "LogicAssert.h"

#include "tarn/ActivityScope.h"

#include <memory>
#include <utility>

namespace tarn {
namespace {

constexpr const char* sourceFile = "src/cpp/main/ActivityScope";

}  // namespace

void ActivityScope::InitializeResourceTracking() {
    if (m_off || !m_trackResources) {
        return;
    }
    if (m_memoryScope != nullptr) {
        RaiseLogicAssert(sourceFile, 484, "!m_memoryScope", 0x592EEA0E);
    }
    m_cpuScope = std::make_unique<corvala::cputime::ThreadTimeScope>(m_cpuTime);
    m_memoryScope = std::make_unique<corvala::memory::MemoryScope>(&m_memoryCounter);
}

void ActivityScope::ReleaseResources() {
    if (!m_trackResources && (m_memoryScope != nullptr || m_cpuScope != nullptr)) {
        RaiseLogicAssert(
            sourceFile, 249, "m_trackResources || (!m_memoryScope && !m_cpuScope)", 0xDDDE9A38);
    }
    // Not by `reset`, which lets nothing out: the caller wants to know which rule was broken.
    delete m_memoryScope.release();
    m_cpuScope.reset();
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
    Metrics::NameValueList memory;
    memory.reserve(5);
    if (mode == corvala::memory::MemoryTrackingAll) {
        memory.emplace_back(tokens.deallocatedInclusiveAttr, m_memoryCounter.Deallocated());
        memory.emplace_back(tokens.deallocatedCountInclusiveAttr,
                            m_memoryCounter.DeallocatedCount());
        memory.emplace_back(tokens.allocatedPeakAttr, m_memoryCounter.AllocatedPeakUsed());
    }
    memory.emplace_back(tokens.allocatedInclusiveAttr, allocated);
    memory.emplace_back(tokens.allocatedCountInclusiveAttr, allocatedCount);
    m_scope.MultiEmitImpl(Metrics::MetricsEventType::NameValuePairs,
                          Metrics::MetricsValue(tokens.memoryAttrsName),
                          std::move(memory));

    Metrics::NameValueList cpu;
    cpu.reserve(2);
    cpu.emplace_back(tokens.cpuTimeKernelInclusiveAttr, m_cpuTime.kernel);
    cpu.emplace_back(tokens.cpuTimeUserInclusiveAttr, m_cpuTime.user);
    m_scope.MultiEmitImpl(Metrics::MetricsEventType::NameValuePairs,
                          Metrics::MetricsValue(tokens.cpuAttrsName),
                          std::move(cpu));
}

}  // namespace tarn
