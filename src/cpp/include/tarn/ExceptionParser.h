#pragma once

#include "tarn/ExceptionInfo.h"
#include "tarn/Export.h"

#include "cvlsys/CorvalaException.h"

#include <exception>

namespace tarn {

/// Turns an exception into texts, to be sent as the outcome of a scope. Stateless; any thread.
/// Exceptions of the host keep their error information, by whatever static type they arrive.
class TARN_EXPORT ExceptionParser {
public:
    static ExceptionInfo ParseException(const CorvalaException& exception);
    static ExceptionInfo ParseException(const std::exception& exception);

    /// Anything may have been thrown. An empty pointer raises `LogicException` ("eptr").
    static ExceptionInfo ParseException(const std::exception_ptr& exception);
};

}  // namespace tarn
