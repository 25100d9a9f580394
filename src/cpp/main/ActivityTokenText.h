#pragma once

#include "tarn/ActivityTokenTable.h"

#include "cvlcoreplatform/TString.h"

/// The characters of the tokens. Whatever points at a token is initialised from these arrays, so
/// that all its pointers are equal and none depends on the order of initialisation.
namespace ActivityTokenText {

#define TARN_TOKEN_CHARACTERS(token, text) inline constexpr wchar_t token[] = L"" text;
TARN_ACTIVITY_TOKENS(TARN_TOKEN_CHARACTERS)
#undef TARN_TOKEN_CHARACTERS

}  // namespace ActivityTokenText

namespace tarn {

/// The tokens as strings, made once; copies share the characters.
struct TokenStrings {
#define TARN_TOKEN_STRING(token, text) const TString token{ActivityTokenText::token};
    TARN_ACTIVITY_TOKENS(TARN_TOKEN_STRING)
#undef TARN_TOKEN_STRING
};

/// Lives as long as the process; usable from any static initialiser.
const TokenStrings& Tokens();

}  // namespace tarn
