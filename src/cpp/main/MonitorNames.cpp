#include "MonitorNames.h"

#include "ActivityTokenText.h"

namespace tarn {

MonitorNames::MonitorNames() {
    const auto& tokens = Tokens();

    lists.Add(tokens.cpuAttrsName, ListName::CpuAttributes);
    lists.Add(tokens.memoryAttrsName, ListName::MemoryAttributes);
    lists.Add(tokens.requestScopeName, ListName::Request);
    lists.Add(tokens.resultAttrs, ListName::ResultAttributes);
    lists.Add(tokens.requestContextAttributes, ListName::RequestContextAttributes);
    lists.Add(tokens.addMappableContextAttributes, ListName::MappableContextAttributes);
    lists.Add(tokens.addContextAttributes, ListName::ContextAttributes);

    activityAttributes.Add(tokens.tidAttr, ActivityAttributeName::ThreadId);
    activityAttributes.Add(tokens.cmdNameAttr, ActivityAttributeName::CommandName);
    activityAttributes.Add(tokens.resultKeyAttr, ActivityAttributeName::ResultKey);

    figures.Add(tokens.allocatedInclusiveAttr, FigureName::Allocated);
    figures.Add(tokens.allocatedCountInclusiveAttr, FigureName::AllocatedCount);
    figures.Add(tokens.allocatedPeakAttr, FigureName::AllocatedPeak);
    figures.Add(tokens.deallocatedInclusiveAttr, FigureName::Deallocated);
    figures.Add(tokens.deallocatedCountInclusiveAttr, FigureName::DeallocatedCount);
    figures.Add(tokens.cpuTimeUserInclusiveAttr, FigureName::UserTime);
    figures.Add(tokens.cpuTimeKernelInclusiveAttr, FigureName::KernelTime);

    contextAttributes.Add(tokens.cidAttr, ContextAttributeName::ContextId);
    contextAttributes.Add(tokens.pidAttr, ContextAttributeName::ProcessId);
    contextAttributes.Add(tokens.ridAttr, ContextAttributeName::RequestId);
    contextAttributes.Add(tokens.requestDescription, ContextAttributeName::RequestDescription);
    contextAttributes.Add(tokens.sidAttr, ContextAttributeName::SessionId);
    contextAttributes.Add(tokens.tidAttr, ContextAttributeName::ThreadId);
    contextAttributes.Add(tokens.siteAttr, ContextAttributeName::Site);
    contextAttributes.Add(tokens.userAttr, ContextAttributeName::User);
    contextAttributes.Add(tokens.workbookAttr, ContextAttributeName::Workbook);
    contextAttributes.Add(tokens.viewAttr, ContextAttributeName::View);
}

}  // namespace tarn
