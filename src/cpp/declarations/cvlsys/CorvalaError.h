#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/TStringCore.h"

/// An error's code and its text, for example 0x92C72FA5 and
/// "LogicException_LogicAssert_0x92C72FA5". A value; two errors are the same when their codes are.
class CVLSYS_API CorvalaError {
public:
    CorvalaError(uint32 code, const wchar_t* text);
    CorvalaError(uint32 code, TStringCore text) noexcept;

    /// Code 0, empty text.
    static CorvalaError NoError();

    uint32 GetCode() const noexcept { return m_code; }

    const TStringCore& GetText() const noexcept { return m_text; }

private:
    uint32 m_code;
    TStringCore m_text;
};
