#pragma once

// The one place where the names of attributes, phases and groups are spelled. Each row gives the
// token's identifier and its text; code, tests and documentation derive from these rows.

/// Structure of an event, and phases.
#define TARN_EVENT_TOKENS(X)                   \
    X(phaseAttr, "type")                       \
    X(typeAttr, "type")                        \
    X(beginPhase, "begin")                     \
    X(endPhase, "end")                         \
    X(beginAttr, "begin")                      \
    X(endAttr, "end")                          \
    X(nameAttr, "name")                        \
    X(idAttr, "id")                            \
    X(activityAttributes, "multiNVPs")         \
    X(activityContext, "activityCtx")          \
    X(requestContextAttributes, "reqCtxAttrs") \
    X(logSupplementsAttr, "logs")              \
    X(resultAttrs, "resultAttrs")              \
    X(miscAttr, "misc")                        \
    X(requestScopeName, "request")             \
    X(requestDescription, "req-desc")          \
    X(cmdNameAttr, "cmd-name")

/// Identity and depth of an activity.
#define TARN_CONTEXT_TOKENS(X)            \
    X(ridAttr, "rid")                     \
    X(rootAttr, "root")                   \
    X(sponsorAttr, "sponsor")             \
    X(activityIdAttr, "activityId")       \
    X(sponsorActivityIdAttr, "sponsorId") \
    X(depthAttr, "depth")                 \
    X(serviceDepthAttr, "sDepth")         \
    X(traceDepthAttr, "traceDepth")       \
    X(foregroundRootAttr, "__root__")     \
    X(addContextAttributes, "ctx")        \
    X(addMappableContextAttributes, "mctx")

/// Process, host and session.
#define TARN_PROCESS_TOKENS(X)            \
    X(pidAttr, "pid")                     \
    X(tidAttr, "tid")                     \
    X(numberOfThreads, "ntid")            \
    X(hostAttr, "host")                   \
    X(environmentAttr, "env")             \
    X(siteAttr, "site")                   \
    X(userAttr, "user")                   \
    X(sidAttr, "sid")                     \
    X(cidAttr, "cid")                     \
    X(newSessionAttr, "new-session")      \
    X(newSessionIdAttr, "new-session-id") \
    X(numBootstrapsAttr, "nBoots")

/// Times.
#define TARN_TIMING_TOKENS(X)           \
    X(elapsedAttr, "elapsed")           \
    X(exclusiveTimeAttr, "exclusive")   \
    X(startTimeAttr, "startTime")       \
    X(startSecondsAttr, "startSeconds") \
    X(startMicroSecondsAttr, "startMicroseconds")

/// Results, cancellation and failure.
#define TARN_RESULT_TOKENS(X)                    \
    X(resultOk, "ok")                            \
    X(resultKeyAttr, "rk")                       \
    X(resultValueAttr, "rv")                     \
    X(resultCountSponseeErrors, "rnerr")         \
    X(resultCountSponseeEarlyTerms, "rnterm")    \
    X(canceledAttr, "canceled")                  \
    X(earlyTerminationAttr, "early-termination") \
    X(errorAttr, "error")                        \
    X(errorCodeAttr, "e-code")                   \
    X(errorSourceAttr, "e-source")               \
    X(errorStatusCodeAttr, "e-status-code")      \
    X(exceptionAttr, "exception")                \
    X(failureAttr, "failure")                    \
    X(messageAttr, "msg")

/// Memory and processor figures.
#define TARN_RESOURCE_TOKENS(X)             \
    X(memoryAttrsName, "memoryAttrs")       \
    X(cpuAttrsName, "cpuAttrs")             \
    X(resourceSubGroupName, "res")          \
    X(allocSubGroupName, "alloc")           \
    X(freeSubGroupName, "free")             \
    X(kernelCpuSubGroupName, "kcpu")        \
    X(userCpuSubGroupName, "ucpu")          \
    X(allocatedInclusiveAttr, "ai")         \
    X(allocatedExclusiveAttr, "ae")         \
    X(allocatedCountInclusiveAttr, "ani")   \
    X(allocatedCountExclusiveAttr, "ane")   \
    X(allocatedPeakAttr, "apeak")           \
    X(deallocatedInclusiveAttr, "di")       \
    X(deallocatedExclusiveAttr, "de")       \
    X(deallocatedCountInclusiveAttr, "dni") \
    X(deallocatedCountExclusiveAttr, "dne") \
    X(cpuTimeKernelInclusiveAttr, "ki")     \
    X(cpuTimeKernelExclusiveAttr, "ke")     \
    X(cpuTimeUserInclusiveAttr, "ui")       \
    X(cpuTimeUserExclusiveAttr, "ue")

/// Workbooks and views.
#define TARN_WORKBOOK_TOKENS(X) \
    X(workbookAttr, "wb")       \
    X(worksheetAttr, "ws")      \
    X(dashboardAttr, "dash")    \
    X(storyboardAttr, "sb")     \
    X(viewAttr, "vw")           \
    X(computeModelessFilterStateAttr, "is-mfs")

/// All of them.
#define TARN_ACTIVITY_TOKENS(X) \
    TARN_EVENT_TOKENS(X)        \
    TARN_CONTEXT_TOKENS(X)      \
    TARN_PROCESS_TOKENS(X)      \
    TARN_TIMING_TOKENS(X)       \
    TARN_RESULT_TOKENS(X)       \
    TARN_RESOURCE_TOKENS(X)     \
    TARN_WORKBOOK_TOKENS(X)
