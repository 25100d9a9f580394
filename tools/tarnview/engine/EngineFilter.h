#pragma once

#include "model/Filter.h"

#include <string>
#include <string_view>

namespace tarnview {

/// A filter as conditions of the engine's language.
struct EngineFilter {
    std::string ended;     ///< on the table of what has ended
    std::string open;      ///< on the table of what has not
    bool isExact = false;  ///< else more passes the conditions than the filter

    static EngineFilter Of(const Filter& filter);
};

/// A text as a literal.
std::string Quoted(std::string_view text);

/// The condition that the id in this column begins so.
std::string IdBeginsWith(const std::string& column, const std::string& beginning);

}  // namespace tarnview
