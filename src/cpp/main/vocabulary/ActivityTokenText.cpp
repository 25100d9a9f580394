#include "ActivityTokenText.h"

#include "NeverDestroyed.h"

namespace tarn {

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
