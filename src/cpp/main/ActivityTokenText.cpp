#include "ActivityTokenText.h"

#include "NeverDestroyed.h"

namespace tarn {

TString ReferTo(const std::u16string& immortal) {
    // A shared pointer without an owner.
    return TString(TString::Characters(TString::Characters(), &immortal));
}

const TokenCharacters& GetTokenCharacters() {
    static const NeverDestroyed<TokenCharacters> characters;
    return characters.Get();
}

const TokenStrings& Tokens() {
    static const NeverDestroyed<TokenStrings> tokens;
    return tokens.Get();
}

const TString& NoText() {
    static const NeverDestroyed<std::u16string> characters(u"-");
    static const NeverDestroyed<TString> none(ReferTo(characters.Get()));
    return none.Get();
}

}  // namespace tarn
