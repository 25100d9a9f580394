#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/TStringCore.h"

namespace TError {

/// Three texts that say more about an error than its code: by convention what failed, what it
/// was doing, and what to do about it. A value; any may be empty.
class CVLSYS_API ErrorInfo {
public:
    ErrorInfo() = default;
    ErrorInfo(TStringCore first, TStringCore second, TStringCore third);

    void GetMembersAsStrings(TStringCore& first, TStringCore& second, TStringCore& third) const;

private:
    TStringCore m_first;
    TStringCore m_second;
    TStringCore m_third;
};

}  // namespace TError
