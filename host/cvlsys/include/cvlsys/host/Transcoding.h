#pragma once

#include "cvlsys/Export.h"

#include <string>
#include <string_view>

namespace cvlsys {

/// As `TStringCore::ToUtf8`, appended to `out`: for writers that keep their buffer.
CVLSYS_API void AppendUtf8(std::u16string_view text, std::string& out);

}  // namespace cvlsys
