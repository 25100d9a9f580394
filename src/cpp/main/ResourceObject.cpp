#include "ResourceObject.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"
#include "ResourceTracking.h"

#include <unordered_map>
#include <utility>

namespace tarn {
namespace {

using TLog::FieldList;
using TLog::LiteralContent;

/// Adds one object under the sub-group's name, if its figures are tracked.
using ResourceWriter = void (*)(FieldList& resources,
                                const TString& subGroup,
                                const ResourceFigures& figures);

void SetBytes(FieldList& table, const TString& name, int64 bytes) {
    table.emplace_back(name, LiteralContent::Double(static_cast<double>(bytes), 0));
}

void SetNumber(FieldList& table, const TString& name, int64 number) {
    table.emplace_back(name, LiteralContent::Int(number));
}

void AddSubGroup(FieldList& resources, const TString& subGroup, FieldList table) {
    resources.emplace_back(subGroup, TLog::Object::MakeOfList(std::move(table)));
}

void WriteAllocations(FieldList& resources,
                      const TString& subGroup,
                      const ResourceFigures& figures) {
    const TokenStrings& tokens = Tokens();
    FieldList table;
    SetBytes(table, tokens.allocatedExclusiveAttr, figures.allocatedBytes.exclusive);
    SetNumber(table, tokens.allocatedCountExclusiveAttr, figures.allocationCount.exclusive);
    SetBytes(table, tokens.allocatedInclusiveAttr, figures.allocatedBytes.Inclusive());
    SetNumber(table, tokens.allocatedCountInclusiveAttr, figures.allocationCount.Inclusive());
    if (GetLoggedMemoryTrackingMode() == corvala::memory::MemoryTrackingAll) {
        SetBytes(table, tokens.allocatedPeakAttr, figures.allocatedPeak);
    }
    AddSubGroup(resources, subGroup, std::move(table));
}

void WriteDeallocations(FieldList& resources,
                        const TString& subGroup,
                        const ResourceFigures& figures) {
    if (GetLoggedMemoryTrackingMode() != corvala::memory::MemoryTrackingAll) {
        return;
    }
    const TokenStrings& tokens = Tokens();
    FieldList table;
    SetBytes(table, tokens.deallocatedExclusiveAttr, figures.deallocatedBytes.exclusive);
    SetNumber(table, tokens.deallocatedCountExclusiveAttr, figures.deallocationCount.exclusive);
    SetBytes(table, tokens.deallocatedInclusiveAttr, figures.deallocatedBytes.Inclusive());
    SetNumber(table, tokens.deallocatedCountInclusiveAttr, figures.deallocationCount.Inclusive());
    AddSubGroup(resources, subGroup, std::move(table));
}

void WriteProcessorTime(FieldList& resources,
                        const TString& subGroup,
                        const TString& inclusiveName,
                        const TString& exclusiveName,
                        const ResourceFigure& figure) {
    if (!IsCpuTimeLogged()) {
        return;
    }
    FieldList table;
    SetNumber(table, inclusiveName, figure.Inclusive());
    SetNumber(table, exclusiveName, figure.exclusive);
    AddSubGroup(resources, subGroup, std::move(table));
}

void WriteKernelTime(FieldList& resources,
                     const TString& subGroup,
                     const ResourceFigures& figures) {
    WriteProcessorTime(resources,
                       subGroup,
                       Tokens().cpuTimeKernelInclusiveAttr,
                       Tokens().cpuTimeKernelExclusiveAttr,
                       figures.kernelTime);
}

void WriteUserTime(FieldList& resources, const TString& subGroup, const ResourceFigures& figures) {
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
    FieldList resources;
    for (const auto& [subGroup, write] : ResourceWriters()) {
        write(resources, subGroup, scope.resources);
    }
    if (IsCpuTimeLogged()) {
        SetNumber(resources, Tokens().numberOfThreads, static_cast<int64>(scope.threadIds.Size()));
    }
    return TLog::Object::MakeOfList(std::move(resources));
}

}  // namespace tarn
