#include "cvlsys/CorvalaError.h"

#include <utility>

CorvalaError::CorvalaError(uint32 code, const wchar_t* text) : m_code(code), m_text(text) {}

CorvalaError::CorvalaError(uint32 code, TStringCore text) noexcept
    : m_code(code),
      m_text(std::move(text)) {}

CorvalaError CorvalaError::NoError() {
    return CorvalaError(0, TStringCore());
}
