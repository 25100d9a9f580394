#include "tarn/ActivityTokens.h"

#include "ActivityTokenText.h"

namespace ActivityTokens {

#define TARN_DEFINE_TOKEN(token, text) \
    constinit const wchar_t* const token = ActivityTokenText::token;
TARN_ACTIVITY_TOKENS(TARN_DEFINE_TOKEN)
#undef TARN_DEFINE_TOKEN

}  // namespace ActivityTokens
