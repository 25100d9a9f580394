#include "ActivityTokenText.h"

#include "NeverDestroyed.h"

namespace tarn {

const TokenStrings& Tokens() {
    static const NeverDestroyed<TokenStrings> tokens;
    return tokens.Get();
}

}  // namespace tarn
