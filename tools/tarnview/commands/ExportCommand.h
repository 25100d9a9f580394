#pragma once

#include "commands/Context.h"
#include "export/Exports.h"
#include "model/TreeSelection.h"

#include <cstddef>
#include <string>

namespace tarnview {

enum class ExportFormat { Chrome, Perfetto, Speedscope, Otlp, Folded, Pprof };

struct ExportOptions {
    InputOptions input;
    Filter filter;
    TreeOrder order = TreeOrder::AsBegun;
    std::size_t count = 0;  ///< trees; 0: all
    ExportFormat format = ExportFormat::Chrome;
    FoldedWeight weight = FoldedWeight::Time;
    std::string service;  ///< empty: the site
};

/// Writes activities for other tools. Holds all that it writes. Throws `std::system_error` if a
/// file cannot be read.
int RunExport(const ExportOptions& options, Context& context);

}  // namespace tarnview
