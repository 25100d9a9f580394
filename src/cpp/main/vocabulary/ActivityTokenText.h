#pragma once

#include "tarn/ActivityTokenTable.h"

#include "cvlcoreplatform/TString.h"

#include <atomic>
#include <string>

/// The characters of the tokens. Whatever points at a token is initialised from these arrays, so
/// that all its pointers are equal and none depends on the order of initialisation.
namespace ActivityTokenText {

#define TARN_TOKEN_CHARACTERS(token, text) inline constexpr wchar_t token[] = L"" text;
TARN_ACTIVITY_TOKENS(TARN_TOKEN_CHARACTERS)
#undef TARN_TOKEN_CHARACTERS

}  // namespace ActivityTokenText

namespace tarn {

/// The tokens' characters, side by side.
struct TokenCharacters {
#define TARN_TOKEN_UTF16(token, text) const std::u16string token{u"" text};
    TARN_ACTIVITY_TOKENS(TARN_TOKEN_UTF16)
#undef TARN_TOKEN_UTF16

    const std::u16string noText{u"-"};
    const std::u16string caller{u"caller"};
    const std::u16string lineNumber{u"seq"};
};

const TokenCharacters& GetTokenCharacters();

/// The tokens as strings, made once.
struct TokenStrings {
#define TARN_TOKEN_STRING(token, text) \
    const TString token = TString::ReferTo(GetTokenCharacters().token);
    TARN_ACTIVITY_TOKENS(TARN_TOKEN_STRING)
#undef TARN_TOKEN_STRING

    const TString noText = TString::ReferTo(GetTokenCharacters().noText);

    // The names of the additional fields.
    const TString caller = TString::ReferTo(GetTokenCharacters().caller);
    const TString lineNumber = TString::ReferTo(GetTokenCharacters().lineNumber);
};

/// Null until somebody has asked for the tokens.
extern std::atomic<const TokenStrings*> knownTokens;

const TokenStrings& MakeTokens();

/// Lives as long as the process; usable from any static initialiser.
inline const TokenStrings& Tokens() {
    const TokenStrings* const tokens = knownTokens.load(std::memory_order_acquire);
    return tokens != nullptr ? *tokens : MakeTokens();
}

/// "-", which stands for a text that is missing.
inline const TString& NoText() {
    return Tokens().noText;
}

}  // namespace tarn
