#pragma once

#include "cvlcoreplatform/TUUID.h"

#include <cstddef>

namespace cvlcoreplatform {

inline constexpr std::size_t uuidTextLength = 36;

/// The form in logs: upper case, with hyphens. `to` has room for `uuidTextLength` characters.
void WriteUuid(const TUUID& id, char* to) noexcept;

}  // namespace cvlcoreplatform
