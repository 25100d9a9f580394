#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace tarn::test {

/// The object that a line of the log holds. Unlike most readers, which keep the last field of a
/// name, it refuses an object with two fields of one name; and unlike them it wants one line
/// without anything around the object. Throws `std::invalid_argument` for a line that it refuses,
/// whose text says why. Linked by tests and fuzzers alike. Any thread.
nlohmann::json ReadJsonLine(std::string_view line);

}  // namespace tarn::test
