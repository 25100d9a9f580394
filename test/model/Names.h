#pragma once

#include "tarn/ActivityTokenTable.h"

#include <string_view>

/// The wire names as plain UTF-16 text, derived from the token table.
namespace model::names {

#define TARN_MODEL_NAME(token, text) inline constexpr std::u16string_view token = u"" text;
TARN_ACTIVITY_TOKENS(TARN_MODEL_NAME)
#undef TARN_MODEL_NAME

}  // namespace model::names
