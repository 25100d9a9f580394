#pragma once

#include "model/TopStatistics.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// A column of figures of the top table.
struct TopColumn {
    std::string_view name;   ///< in the table, and to sort by
    std::string_view field;  ///< in CSV and JSON, where it says the unit
    std::size_t width;
    bool isBad;                                         ///< anything but 0 is worth a look
    std::optional<double> (*value)(const TopRow& row);  ///< nothing: it was not measured
    std::string (*format)(double value);                ///< for people
    std::string (*raw)(double value);                   ///< for programs, a number
    int rank;  ///< of those that do not fit on a terminal the highest goes first; 0 stays
};

const std::vector<TopColumn>& TopColumns();

/// Null if there is none of this name.
const TopColumn* FindTopColumn(std::string_view name);

}  // namespace tarnview
