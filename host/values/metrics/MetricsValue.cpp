#include "cvlmetrics/MetricsValue.h"

#include "cvlsys/host/RecycledBlocks.h"
#include "cvlsys/host/RecycledTexts.h"

#include <string_view>

namespace Metrics {

namespace {

using Utf16Characters = std::shared_ptr<const std::u16string>;

// An empty TString may own no characters, a text value always does: readers of one do not
// check the pointer.
const Utf16Characters& EmptyUtf16() {
    static const Utf16Characters& empty =
        *new const Utf16Characters(std::make_shared<const std::u16string>());
    return empty;
}

const Utf16Characters& CharactersOf(const TString& text) {
    const Utf16Characters& characters = text.SharedCharacters();
    return characters != nullptr ? characters : EmptyUtf16();
}

}  // namespace

MetricsValue::MetricsValue(const char* text)
    : type(MV_Utf8String),
      utf8(cvlsys::MakeText(std::string_view(text != nullptr ? text : ""))) {}

MetricsValue::MetricsValue(const std::string& text)
    : type(MV_Utf8String),
      utf8(cvlsys::MakeText(std::string_view(text))) {}

MetricsValue::MetricsValue(std::string&& text)
    : type(MV_Utf8String),
      utf8(cvlsys::MakeRecycled<const std::string>(std::move(text))) {}

MetricsValue::MetricsValue(const wchar_t* text) : MetricsValue(TString(text)) {}

MetricsValue::MetricsValue(const char16_t* text) : MetricsValue(TString(text)) {}

MetricsValue::MetricsValue(const TString& text) : type(MV_Utf16String), utf16(CharactersOf(text)) {}

}  // namespace Metrics
