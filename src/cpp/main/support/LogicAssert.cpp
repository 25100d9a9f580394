#include "LogicAssert.h"

#include "cvlsys/CorvalaError.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/TStringCore.h"

#include <array>
#include <cstdio>

namespace tarn {

void RaiseLogicAssert(const char* file, int line, const char* text, uint32 code) {
    std::array<char, 40> errorText{};
    std::snprintf(errorText.data(), errorText.size(), "LogicException_LogicAssert_0x%08X", code);
    ThrowLogicException(file, line, text, CorvalaError(code, TStringCore(errorText.data())));
}

}  // namespace tarn
