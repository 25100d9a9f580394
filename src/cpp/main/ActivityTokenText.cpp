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

constinit std::atomic<const TokenStrings*> knownTokens{nullptr};

const TokenStrings& MakeTokens() {
    static const NeverDestroyed<TokenStrings> tokens;
    knownTokens.store(&tokens.Get(), std::memory_order_release);
    return tokens.Get();
}

}  // namespace tarn
