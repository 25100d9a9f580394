#include "ResourceObject.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"
#include "ResourceTracking.h"

#include <unordered_map>
#include <utility>

namespace tarn {
namespace {

using TLog::EventBuilder;
using ObjectId = EventBuilder::ObjectId;

/// Adds one object under the sub-group's name, if its figures are tracked.
using ResourceWriter = void (*)(EventBuilder& event,
                                ObjectId resources,
                                const TString& subGroup,
                                const ResourceFigures& figures);

void AddBytes(EventBuilder& event, ObjectId object, const TString& name, int64 bytes) {
    event.AddDouble(object, name, static_cast<double>(bytes));
}

void WriteAllocations(EventBuilder& event,
                      ObjectId resources,
                      const TString& subGroup,
                      const ResourceFigures& figures) {
    const TokenStrings& tokens = Tokens();
    const ObjectId object = event.AddObject(resources, subGroup);
    AddBytes(event, object, tokens.allocatedExclusiveAttr, figures.allocatedBytes.exclusive);
    event.AddInt(object, tokens.allocatedCountExclusiveAttr, figures.allocationCount.exclusive);
    AddBytes(event, object, tokens.allocatedInclusiveAttr, figures.allocatedBytes.Inclusive());
    event.AddInt(object, tokens.allocatedCountInclusiveAttr, figures.allocationCount.Inclusive());
    if (GetLoggedMemoryTrackingMode() == corvala::memory::MemoryTrackingAll) {
        AddBytes(event, object, tokens.allocatedPeakAttr, figures.allocatedPeak);
    }
}

void WriteDeallocations(EventBuilder& event,
                        ObjectId resources,
                        const TString& subGroup,
                        const ResourceFigures& figures) {
    if (GetLoggedMemoryTrackingMode() != corvala::memory::MemoryTrackingAll) {
        return;
    }
    const TokenStrings& tokens = Tokens();
    const ObjectId object = event.AddObject(resources, subGroup);
    AddBytes(event, object, tokens.deallocatedExclusiveAttr, figures.deallocatedBytes.exclusive);
    event.AddInt(object, tokens.deallocatedCountExclusiveAttr, figures.deallocationCount.exclusive);
    AddBytes(event, object, tokens.deallocatedInclusiveAttr, figures.deallocatedBytes.Inclusive());
    event.AddInt(
        object, tokens.deallocatedCountInclusiveAttr, figures.deallocationCount.Inclusive());
}

void WriteProcessorTime(EventBuilder& event,
                        ObjectId resources,
                        const TString& subGroup,
                        const TString& inclusiveName,
                        const TString& exclusiveName,
                        const ResourceFigure& figure) {
    if (!IsCpuTimeLogged()) {
        return;
    }
    const ObjectId object = event.AddObject(resources, subGroup);
    event.AddInt(object, inclusiveName, figure.Inclusive());
    event.AddInt(object, exclusiveName, figure.exclusive);
}

void WriteKernelTime(EventBuilder& event,
                     ObjectId resources,
                     const TString& subGroup,
                     const ResourceFigures& figures) {
    WriteProcessorTime(event,
                       resources,
                       subGroup,
                       Tokens().cpuTimeKernelInclusiveAttr,
                       Tokens().cpuTimeKernelExclusiveAttr,
                       figures.kernelTime);
}

void WriteUserTime(EventBuilder& event,
                   ObjectId resources,
                   const TString& subGroup,
                   const ResourceFigures& figures) {
    WriteProcessorTime(event,
                       resources,
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

void AddResources(TLog::EventBuilder& event,
                  TLog::EventBuilder::ObjectId object,
                  const MetricsMonitor::ScopeState& scope) {
    for (const auto& [subGroup, write] : ResourceWriters()) {
        write(event, object, subGroup, scope.resources);
    }
    if (IsCpuTimeLogged()) {
        event.AddInt(object, Tokens().numberOfThreads, static_cast<int64>(scope.threadIds.Size()));
    }
}

}  // namespace tarn
