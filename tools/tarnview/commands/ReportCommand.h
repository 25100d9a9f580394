#pragma once

#include "commands/Context.h"
#include "model/TreeSelection.h"

#include <cstddef>

namespace tarnview {

struct ReportOptions {
    InputOptions input;
    Filter filter;
    TreeOrder order = TreeOrder::AsBegun;
    std::size_t count = 0;  ///< trees; 0: all
};

/// Writes a page for a browser. Holds what it shows. Throws `std::system_error` if a file cannot be
/// read.
int RunReport(const ReportOptions& options, Context& context);

}  // namespace tarnview
