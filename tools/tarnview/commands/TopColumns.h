#pragma once

#include "model/TopStatistics.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// A column of figures of the top table.
struct TopColumn {
    std::string_view name;   ///< in the table, and to sort by
    std::string_view field;  ///< in CSV and JSON, where it says the unit
    std::size_t width;
    bool isBad;  ///< anything but 0 is worth a look
    double (*value)(const TopRow& row);
    std::string (*format)(double value);  ///< for people
    std::string (*raw)(double value);     ///< for programs, a number
};

std::vector<TopColumn> TopColumns(bool countsBegins);

/// Null if there is none of this name.
const TopColumn* FindTopColumn(std::string_view name);

}  // namespace tarnview
