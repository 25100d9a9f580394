#include "ResourceObject.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"
#include "ResourceTracking.h"

#include <unordered_map>
#include <utility>

namespace tarn {
namespace {

using TLog::Literal;
using TLog::NameTable;

/// Adds one object under the sub-group's name, if its figures are tracked.
using ResourceWriter = void (*)(NameTable& resources,
                                const TString& subGroup,
                                const ResourceFigures& figures);

void SetBytes(NameTable& table, const TString& name, int64 bytes) {
    table.insert_or_assign(name, Literal::Double(static_cast<double>(bytes), 0));
}

void SetNumber(NameTable& table, const TString& name, int64 number) {
    table.insert_or_assign(name, Literal::Int(number));
}

void WriteAllocations(NameTable& resources,
                      const TString& subGroup,
                      const ResourceFigures& figures) {
    const TokenStrings& tokens = Tokens();
    NameTable table;
    SetBytes(table, tokens.allocatedExclusiveAttr, figures.allocatedBytes.exclusive);
    SetNumber(table, tokens.allocatedCountExclusiveAttr, figures.allocationCount.exclusive);
    SetBytes(table, tokens.allocatedInclusiveAttr, figures.allocatedBytes.Inclusive());
    SetNumber(table, tokens.allocatedCountInclusiveAttr, figures.allocationCount.Inclusive());
    if (GetLoggedMemoryTrackingMode() == corvala::memory::MemoryTrackingAll) {
        SetBytes(table, tokens.allocatedPeakAttr, figures.allocatedPeak);
    }
    resources.insert_or_assign(subGroup, TLog::Object::Make(std::move(table)));
}

void WriteDeallocations(NameTable& resources,
                        const TString& subGroup,
                        const ResourceFigures& figures) {
    if (GetLoggedMemoryTrackingMode() != corvala::memory::MemoryTrackingAll) {
        return;
    }
    const TokenStrings& tokens = Tokens();
    NameTable table;
    SetBytes(table, tokens.deallocatedExclusiveAttr, figures.deallocatedBytes.exclusive);
    SetNumber(table, tokens.deallocatedCountExclusiveAttr, figures.deallocationCount.exclusive);
    SetBytes(table, tokens.deallocatedInclusiveAttr, figures.deallocatedBytes.Inclusive());
    SetNumber(table, tokens.deallocatedCountInclusiveAttr, figures.deallocationCount.Inclusive());
    resources.insert_or_assign(subGroup, TLog::Object::Make(std::move(table)));
}

void WriteProcessorTime(NameTable& resources,
                        const TString& subGroup,
                        const TString& inclusiveName,
                        const TString& exclusiveName,
                        const ResourceFigure& figure) {
    if (!IsCpuTimeLogged()) {
        return;
    }
    NameTable table;
    SetNumber(table, inclusiveName, figure.Inclusive());
    SetNumber(table, exclusiveName, figure.exclusive);
    resources.insert_or_assign(subGroup, TLog::Object::Make(std::move(table)));
}

void WriteKernelTime(NameTable& resources,
                     const TString& subGroup,
                     const ResourceFigures& figures) {
    WriteProcessorTime(resources,
                       subGroup,
                       Tokens().cpuTimeKernelInclusiveAttr,
                       Tokens().cpuTimeKernelExclusiveAttr,
                       figures.kernelTime);
}

void WriteUserTime(NameTable& resources, const TString& subGroup, const ResourceFigures& figures) {
    WriteProcessorTime(resources,
                       subGroup,
                       Tokens().cpuTimeUserInclusiveAttr,
                       Tokens().cpuTimeUserExclusiveAttr,
                       figures.userTime);
}

const std::unordered_map<TString, ResourceWriter>& ResourceWriters() {
    static const NeverDestroyed<std::unordered_map<TString, ResourceWriter>> writers(
        std::unordered_map<TString, ResourceWriter>{
            {Tokens().allocSubGroupName, &WriteAllocations},
            {Tokens().freeSubGroupName, &WriteDeallocations},
            {Tokens().kernelCpuSubGroupName, &WriteKernelTime},
            {Tokens().userCpuSubGroupName, &WriteUserTime}});
    return writers.Get();
}

}  // namespace

std::shared_ptr<TLog::Object> MakeResourceObject(const MetricsMonitor::ScopeState& scope) {
    NameTable resources;
    for (const auto& [subGroup, write] : ResourceWriters()) {
        write(resources, subGroup, scope.resources);
    }
    if (IsCpuTimeLogged()) {
        SetNumber(resources, Tokens().numberOfThreads, static_cast<int64>(scope.threadIds.size()));
    }
    return TLog::Object::Make(std::move(resources));
}

}  // namespace tarn
