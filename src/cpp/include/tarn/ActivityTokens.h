#pragma once

#include "tarn/ActivityTokenTable.h"
#include "tarn/Export.h"

/// The names that this library writes into metrics events and log events, or looks for in them,
/// as NUL-terminated wide text: `ActivityTokens::idAttr` is "id". The rows of
/// ActivityTokenTable.h are all there are. Spell names by their token, compare them exactly. The
/// pointers are constant-initialised, so that any static initialiser may read them.
namespace ActivityTokens {

#define TARN_DECLARE_TOKEN(token, text) extern TARN_EXPORT const wchar_t* const token;
TARN_ACTIVITY_TOKENS(TARN_DECLARE_TOKEN)
#undef TARN_DECLARE_TOKEN

}  // namespace ActivityTokens
