#include "cvlsys/CorvalaException.h"

#include <utility>

namespace {

std::string OrEmpty(const char* text) {
    return text != nullptr ? std::string(text) : std::string();
}

// Reads like an assertion: what should have held, where, and the code to search for.
TStringCore Describe(const char* file, int line, const char* text, const CorvalaError& error) {
    const std::string place = OrEmpty(file) + ":" + std::to_string(line);
    return TStringCore::FromUtf8(OrEmpty(text) + " (" + place + ", ") + error.GetText() +
           TStringCore(u")");
}

}  // namespace

CorvalaException::CorvalaException(TStringCore message, CorvalaError error, TError::ErrorInfo info)
    : m_message(std::move(message)),
      m_utf8Message(m_message.ToUtf8()),
      m_error(std::move(error)),
      m_info(std::move(info)) {}

CorvalaException::~CorvalaException() = default;

TStringCore CorvalaException::GetMessage() const {
    return m_message;
}

LogicException::LogicException(const char* file,
                               int line,
                               const char* text,
                               const CorvalaError& error)
    : CorvalaException(Describe(file, line, text, error), error),
      m_file(OrEmpty(file)),
      m_line(line),
      m_text(OrEmpty(text)) {}

LogicException::~LogicException() = default;

void ThrowLogicException(const char* file, int line, const char* text, const CorvalaError& error) {
    throw LogicException(file, line, text, error);
}
