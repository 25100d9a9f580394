#include "PlainText.h"

#include <algorithm>
#include <simdjson.h>

namespace packagesearch {

bool IsPlainText(std::string_view text, std::size_t longest) noexcept {
    const auto isControl = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7F;
    };
    return text.size() <= longest && std::none_of(text.begin(), text.end(), isControl) &&
           simdjson::validate_utf8(text.data(), text.size());
}

}  // namespace packagesearch
