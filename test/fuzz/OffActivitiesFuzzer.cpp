// The list of activities that are off, against the rule said once more: the names between the
// commas, without white space at their ends, up to the first that is missing altogether.
#include "Input.h"
#include "Utf.h"

#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/TString.h"

#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::u16string text = input.Units();

    tarn::TarnSettings::Names expected;
    std::u16string_view rest = text;
    while (!rest.empty()) {
        const std::size_t comma = rest.find(u',');
        const std::u16string_view name = rest.substr(0, comma);
        if (name.empty()) {
            break;
        }
        expected.insert(fuzz::ReferenceUtf8(TString(name).Trimmed().View()));
        rest = comma == std::u16string_view::npos ? std::u16string_view() : rest.substr(comma + 1);
    }

    fuzz::Require(tarn::TarnSettings::ParseOffActivitiesFromString(TString(text)) == expected,
                  "the names are those between the commas");
    return 0;
}
