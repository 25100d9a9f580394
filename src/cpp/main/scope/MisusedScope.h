#pragma once

#include "cvlsys/CorvalaException.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <string_view>

namespace tarn {

/// Says on standard error, in one line, which measured scope was used in a way that ends the
/// process, on which threads, and what to use instead. A name that fills `room` may have been cut.
/// Called on the thread that the scope ended on.
void ReportMisusedScope(std::string_view name,
                        std::size_t room,
                        uint64 threadAtBegin,
                        const LogicException& broken) noexcept;

}  // namespace tarn
