#pragma once

#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// Raises the host's logic exception for a broken invariant. `file` is the source's name without
/// ending, `text` what should have held; the error's text is made from `code`. The numbers are
/// part of what support looks up, so they do not follow the source when it moves.
[[noreturn]] void RaiseLogicAssert(const char* file, int line, const char* text, uint32 code);

}  // namespace tarn
