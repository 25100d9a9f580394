// UTF-16 to UTF-8 and back, against a transcoder of its own and the rules of well-formed text.
#include "Input.h"
#include "Utf.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/host/Transcoding.h"

#include <nlohmann/json.hpp>
#include <string>

namespace {

/// Another program's opinion: its writer refuses text that is not well-formed.
bool IsWellFormed(const std::string& utf8) {
    try {
        static_cast<void>(nlohmann::json(utf8).dump());
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::u16string units = input.Units();
    const std::string bytes = input.Bytes();

    const std::string utf8 = TString(units).ToUtf8();
    fuzz::Require(utf8 == fuzz::ReferenceUtf8(units), "UTF-16 becomes UTF-8");
    std::string appended = "before";
    cvlsys::AppendUtf8(units, appended);
    fuzz::Require(appended == "before" + utf8, "appending gives the same");
    fuzz::Require(IsWellFormed(utf8), "what is written is well-formed");
    if (utf8.find("\xEF\xBF\xBD") == std::string::npos) {
        fuzz::Require(TString::FromUtf8(utf8).View() == units, "well-formed text comes back");
    }

    const std::string read = TString::FromUtf8(bytes).ToUtf8();
    fuzz::Require(IsWellFormed(read), "what is read is well-formed");
    fuzz::Require(!IsWellFormed(bytes) || read == bytes, "well-formed text stays as it is");
    fuzz::Require(TString::FromUtf8(read).ToUtf8() == read, "reading again changes nothing");
    return 0;
}
