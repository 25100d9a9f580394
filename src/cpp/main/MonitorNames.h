#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <unordered_map>

namespace tarn {

enum class ListName : int32 {
    CpuAttributes = 0,
    MemoryAttributes = 1,
    Request = 2,
    ResultAttributes = 3,
    RequestContextAttributes = 4,
    MappableContextAttributes = 5,
    ContextAttributes = 6,
    Unknown = 7,
};

enum class ActivityAttributeName : int32 {
    ThreadId = 0,
    CommandName = 1,
    ResultKey = 2,
    Unknown = 3,
};

enum class FigureName : int32 {
    Allocated = 0,
    AllocatedCount = 1,
    AllocatedPeak = 2,
    Deallocated = 3,
    DeallocatedCount = 4,
    UserTime = 5,
    KernelTime = 6,
    Unknown = 7,
};

enum class ContextAttributeName : int32 {
    ContextId = 0,
    ProcessId = 1,
    RequestId = 2,
    RequestDescription = 3,
    SessionId = 4,
    ThreadId = 5,
    Site = 6,
    User = 7,
    Workbook = 8,
    View = 9,
    Unknown = 10,
};

/// Names with a fixed meaning and their codes.
template <class Code>
class NameCodes {
public:
    void Add(const TString& name, Code code) { m_codes.emplace(name, code); }

    Code Find(const TString& name) const {
        const auto found = m_codes.find(name);
        return found == m_codes.end() ? Code::Unknown : found->second;
    }

private:
    std::unordered_map<TString, Code> m_codes;
};

/// The names that the monitor treats specially.
struct MonitorNames {
    MonitorNames();

    NameCodes<ListName> lists;
    NameCodes<ActivityAttributeName> activityAttributes;
    NameCodes<FigureName> figures;
    NameCodes<ContextAttributeName> contextAttributes;
};

}  // namespace tarn
