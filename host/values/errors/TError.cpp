#include "cvlsys/TError.h"

#include <utility>

namespace TError {

ErrorInfo::ErrorInfo(TStringCore first, TStringCore second, TStringCore third)
    : m_first(std::move(first)),
      m_second(std::move(second)),
      m_third(std::move(third)) {}

void ErrorInfo::GetMembersAsStrings(TStringCore& first,
                                    TStringCore& second,
                                    TStringCore& third) const {
    first = m_first;
    second = m_second;
    third = m_third;
}

}  // namespace TError
