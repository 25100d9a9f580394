#pragma once

#include "cvlsys/CorvalaError.h"
#include "cvlsys/Export.h"
#include "cvlsys/TError.h"
#include "cvlsys/TStringCore.h"

#include <exception>
#include <string>

/// Base of the host's exceptions: a message, an error and its information.
class CVLSYS_API CorvalaException : public std::exception {
public:
    explicit CorvalaException(TStringCore message,
                              CorvalaError error = CorvalaError::NoError(),
                              TError::ErrorInfo info = {});
    CorvalaException(const CorvalaException&) = default;
    CorvalaException& operator=(const CorvalaException&) = default;
    ~CorvalaException() override;

    virtual TStringCore GetMessage() const;

    const CorvalaError& GetError() const noexcept { return m_error; }

    uint32 GetErrorCode() const noexcept { return m_error.GetCode(); }

    const TError::ErrorInfo& GetErrorInfo() const noexcept { return m_info; }

    /// The constructor's message in UTF-8.
    const char* what() const noexcept override { return m_utf8Message.c_str(); }

private:
    TStringCore m_message;
    std::string m_utf8Message;
    CorvalaError m_error;
    TError::ErrorInfo m_info;
};

/// A broken invariant: where it was noticed, and the text that should have held.
class CVLSYS_API LogicException : public CorvalaException {
public:
    LogicException(const char* file, int line, const char* text, const CorvalaError& error);
    LogicException(const LogicException&) = default;
    LogicException& operator=(const LogicException&) = default;
    ~LogicException() override;

    const std::string& GetFile() const noexcept { return m_file; }

    int GetLine() const noexcept { return m_line; }

    const std::string& GetText() const noexcept { return m_text; }

private:
    std::string m_file;
    int m_line;
    std::string m_text;
};

/// Raises a `LogicException` that carries the arguments as given.
[[noreturn]] CVLSYS_API void ThrowLogicException(const char* file,
                                                 int line,
                                                 const char* text,
                                                 const CorvalaError& error);
