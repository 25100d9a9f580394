#pragma once

#include <string>
#include <string_view>

namespace cvlsys {

// With cvlsys/host/Transcoding.h the only place where text changes its encoding. What is ill-formed
// becomes U+FFFD and never swallows the character behind it.

/// A byte that begins no character, or a lead byte with the continuation bytes that belong to it,
/// is one ill-formed sequence.
std::u16string Utf16FromUtf8(std::string_view text);

/// The platform's wide text: UTF-32 where `wchar_t` has 32 bits, else UTF-16. Surrogates are kept.
std::u16string Utf16FromWide(std::wstring_view text);

}  // namespace cvlsys
