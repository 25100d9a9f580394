#include "MonitorNames.h"

#include "ActivityTokenText.h"

namespace tarn {

MonitorNames::MonitorNames()
    : lists{{Tokens().cpuAttrsName, ListName::CpuAttributes},
            {Tokens().memoryAttrsName, ListName::MemoryAttributes},
            {Tokens().requestScopeName, ListName::Request},
            {Tokens().resultAttrs, ListName::ResultAttributes},
            {Tokens().requestContextAttributes, ListName::RequestContextAttributes},
            {Tokens().addMappableContextAttributes, ListName::MappableContextAttributes},
            {Tokens().addContextAttributes, ListName::ContextAttributes}},
      activityAttributes{{Tokens().tidAttr, ActivityAttributeName::ThreadId},
                         {Tokens().cmdNameAttr, ActivityAttributeName::CommandName},
                         {Tokens().resultKeyAttr, ActivityAttributeName::ResultKey}},
      figures{{Tokens().allocatedInclusiveAttr, FigureName::Allocated},
              {Tokens().allocatedCountInclusiveAttr, FigureName::AllocatedCount},
              {Tokens().allocatedPeakAttr, FigureName::AllocatedPeak},
              {Tokens().deallocatedInclusiveAttr, FigureName::Deallocated},
              {Tokens().deallocatedCountInclusiveAttr, FigureName::DeallocatedCount},
              {Tokens().cpuTimeUserInclusiveAttr, FigureName::UserTime},
              {Tokens().cpuTimeKernelInclusiveAttr, FigureName::KernelTime}},
      contextAttributes{{Tokens().cidAttr, ContextAttributeName::ContextId},
                        {Tokens().pidAttr, ContextAttributeName::ProcessId},
                        {Tokens().ridAttr, ContextAttributeName::RequestId},
                        {Tokens().requestDescription, ContextAttributeName::RequestDescription},
                        {Tokens().sidAttr, ContextAttributeName::SessionId},
                        {Tokens().tidAttr, ContextAttributeName::ThreadId},
                        {Tokens().siteAttr, ContextAttributeName::Site},
                        {Tokens().userAttr, ContextAttributeName::User},
                        {Tokens().workbookAttr, ContextAttributeName::Workbook},
                        {Tokens().viewAttr, ContextAttributeName::View}} {}

}  // namespace tarn
