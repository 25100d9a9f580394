#pragma once

#include <string>
#include <string_view>

namespace tarn::otlp {

/// The text in the format of gzip, as fast as that goes. Throws `std::bad_alloc`.
std::string Compress(std::string_view text);

}  // namespace tarn::otlp
