#pragma once

#include "cvlsys/IntegerTypes.h"

// The names that mean something to the monitor, a table for each place in which they do. A row has
// the name in the code and its token; the codes and what the monitor looks for come from there. The
// names of a request's attributes are in RequestAttributes.h.

/// What the opening of a scope says with foreground thread contexts.
#define TARN_OPENING_PAIR_NAMES(X)    \
    X(TraceDepth, traceDepthAttr)     \
    X(ServiceDepth, serviceDepthAttr) \
    X(RootId, foregroundRootAttr)     \
    X(OwnId, activityIdAttr)          \
    X(RequestId, ridAttr)             \
    X(SponsorId, sponsorActivityIdAttr)

/// Lists of attributes, and the scope that is a request.
#define TARN_LIST_NAMES(X)                                     \
    X(CpuAttributes, cpuAttrsName)                             \
    X(MemoryAttributes, memoryAttrsName)                       \
    X(Request, requestScopeName)                               \
    X(ResultAttributes, resultAttrs)                           \
    X(RequestContextAttributes, requestContextAttributes)      \
    X(MappableContextAttributes, addMappableContextAttributes) \
    X(ContextAttributes, addContextAttributes)

/// Attributes of an activity that are no data of the host's.
#define TARN_ACTIVITY_ATTRIBUTE_NAMES(X) \
    X(ThreadId, tidAttr)                 \
    X(CommandName, cmdNameAttr)          \
    X(ResultKey, resultKeyAttr)

/// Resource figures.
#define TARN_FIGURE_NAMES(X)                           \
    X(Allocated, allocatedInclusiveAttr)               \
    X(AllocatedCount, allocatedCountInclusiveAttr)     \
    X(AllocatedPeak, allocatedPeakAttr)                \
    X(Deallocated, deallocatedInclusiveAttr)           \
    X(DeallocatedCount, deallocatedCountInclusiveAttr) \
    X(UserTime, cpuTimeUserInclusiveAttr)              \
    X(KernelTime, cpuTimeKernelInclusiveAttr)

namespace tarn {

// clang-format off
#define TARN_CODE(name, token) name,
enum class OpeningPairName : int32 { TARN_OPENING_PAIR_NAMES(TARN_CODE) Unknown };
enum class ListName : int32 { TARN_LIST_NAMES(TARN_CODE) Unknown };
enum class ActivityAttributeName : int32 { TARN_ACTIVITY_ATTRIBUTE_NAMES(TARN_CODE) Unknown };
enum class FigureName : int32 { TARN_FIGURE_NAMES(TARN_CODE) Unknown };
#undef TARN_CODE
// clang-format on

}  // namespace tarn
