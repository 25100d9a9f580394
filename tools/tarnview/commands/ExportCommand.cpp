#include "commands/ExportCommand.h"

#include "commands/LoadTrees.h"

#include <ostream>

namespace tarnview {

int RunExport(const ExportOptions& options, Context& context) {
    Input input(options.input, context);
    std::vector<std::string> roots;
    const ActivityForest forest =
        LoadSelected(input, options.filter, options.order, options.count, roots);
    std::uint64_t leftOut = 0;
    switch (options.format) {
        case ExportFormat::Chrome:
            ExportChrome(forest, context.out);
            break;
        case ExportFormat::Speedscope:
            ExportSpeedscope(forest, context.out);
            break;
        case ExportFormat::Otlp:
            leftOut = ExportOtlp(forest, options.service, context.out);
            break;
        case ExportFormat::Folded:
            ExportFolded(forest, options.weight, context.out);
            break;
    }
    input.Finish();
    SayIfEmpty(forest, context);
    if (leftOut != 0) {
        context.err << "left out because they never ended: " << leftOut << '\n';
    }
    return exitSuccess;
}

}  // namespace tarnview
