#pragma once

#include <string_view>

namespace host {

/// Copy a text that needs no escapes in JSON: printable ASCII without quotation marks and
/// backslashes. `to` must have room for all of it. False if there is anything else in it; part of
/// the text may have been copied then.
bool CopyPlain(std::u16string_view text, char* to) noexcept;
bool CopyPlain(std::string_view text, char* to) noexcept;

/// The same, one character after the other: short texts, and all texts where the processor has no
/// SSE2.
bool CopyPlainOneByOne(std::u16string_view text, char* to) noexcept;
bool CopyPlainOneByOne(std::string_view text, char* to) noexcept;

}  // namespace host
