#pragma once

#include <iosfwd>
#include <string_view>

namespace tarnview {

/// Compresses with gzip; the same text makes the same bytes. Throws `std::runtime_error` if it
/// cannot be compressed.
void WriteGzip(std::string_view text, std::ostream& out);

}  // namespace tarnview
