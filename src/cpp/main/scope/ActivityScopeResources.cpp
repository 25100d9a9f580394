// Memory and processor time that a scope uses.
#include "ActivityTokenText.h"
#include "LogicAssert.h"
#include "MisusedScope.h"

#include "tarn/ActivityScope.h"

#include "cvlsys/CorvalaException.h"
#include "cvlsys/TSystem.h"

#include <cstddef>
#include <new>

namespace tarn {
namespace {

constexpr const char* sourceFile = "src/cpp/main/ActivityScope";

/// Amounts are signed in two's complement: what was in use before may be freed.
int64 Signed(uint64 amount) noexcept {
    return static_cast<int64>(amount);
}

template <std::size_t size>
Metrics::PairSpan SpanOf(const Metrics::PairView (&pairs)[size]) noexcept {
    return {pairs, size};
}

}  // namespace

void ActivityScope::InitializeResourceTracking() {
    if (m_off || !m_trackResources) {
        return;
    }
    if (m_isMeasuring) {
        RaiseLogicAssert(sourceFile, 484, "!m_memoryScope", 0x592EEA0E);
    }
    m_threadAtBegin = TSystem::ThreadID();
    new (&m_measurement) Measurement(m_cpuTime, m_memoryCounter);
    m_isMeasuring = true;
}

// A broken invariant ends the process. The scope's name and its threads are known here only.
void ActivityScope::ReleaseResources() {
    if (!m_isMeasuring) {
        return;
    }
    try {
        if (!m_trackResources) {
            RaiseLogicAssert(
                sourceFile, 249, "m_trackResources || (!m_memoryScope && !m_cpuScope)", 0xDDDE9A38);
        }
        m_isMeasuring = false;
        m_measurement.~Measurement();
    } catch (const LogicException& broken) {
        ReportMisusedScope(
            m_scope.GetNamePrefix(), Metrics::Scope::shortNameSize, m_threadAtBegin, broken);
        throw;
    }
}

// The thread's id, the figures, memory before processor time, and the end. The end event always
// carries both allocation figures: zeroes when nothing is tracked.
void ActivityScope::FinishMetricsScope() noexcept {
    using Metrics::MetricsEventType;
    constexpr auto list = MetricsEventType::NameValuePairs;
    const TokenStrings& tokens = Tokens();
    const Metrics::Scope::FinalEvent thread(
        MetricsEventType::NameValue, tokens.tidAttr, TSystem::ThreadID());
    if (!m_trackResources) {
        m_scope.Finish({thread});
        return;
    }
    const Metrics::PairView cpuFigures[] = {{tokens.cpuTimeKernelInclusiveAttr, m_cpuTime.kernel},
                                            {tokens.cpuTimeUserInclusiveAttr, m_cpuTime.user}};
    const Metrics::Scope::FinalEvent cpu(list, tokens.cpuAttrsName, SpanOf(cpuFigures));

    const auto mode = corvala::memory::GetMemoryTrackingMode();
    if (mode == corvala::memory::MemoryTrackingAll) {
        const Metrics::PairView figures[] = {
            {tokens.deallocatedInclusiveAttr, Signed(m_memoryCounter.Deallocated())},
            {tokens.deallocatedCountInclusiveAttr, m_memoryCounter.DeallocatedCount()},
            {tokens.allocatedPeakAttr, Signed(m_memoryCounter.AllocatedPeakUsed())},
            {tokens.allocatedInclusiveAttr, Signed(m_memoryCounter.Allocated())},
            {tokens.allocatedCountInclusiveAttr, m_memoryCounter.AllocatedCount()}};
        m_scope.Finish({thread, {list, tokens.memoryAttrsName, SpanOf(figures)}, cpu});
    } else {
        const bool isTracking = mode == corvala::memory::MemoryTrackingAllocations;
        const Metrics::PairView figures[] = {
            {tokens.allocatedInclusiveAttr, isTracking ? Signed(m_memoryCounter.Allocated()) : 0},
            {tokens.allocatedCountInclusiveAttr,
             isTracking ? m_memoryCounter.AllocatedCount() : 0}};
        m_scope.Finish({thread, {list, tokens.memoryAttrsName, SpanOf(figures)}, cpu});
    }
}

}  // namespace tarn
