#include "commands/ExportCommand.h"

#include "commands/LoadTrees.h"

namespace tarnview {

int RunExport(const ExportOptions& options, Context& context) {
    const bool isBinary =
        options.format == ExportFormat::Perfetto || options.format == ExportFormat::Pprof;
    if (isBinary && context.terminal.isInteractive) {
        throw CommandLineError("export: this format is binary; name a file by --output");
    }
    Input input(options.input, context);
    std::vector<std::string> roots;
    const ActivityForest forest =
        LoadSelected(input, options.filter, options.order, options.count, roots);
    switch (options.format) {
        case ExportFormat::Chrome:
            ExportChrome(forest, context.out);
            break;
        case ExportFormat::Perfetto:
            ExportPerfetto(forest, context.out);
            break;
        case ExportFormat::Speedscope:
            ExportSpeedscope(forest, context.out);
            break;
        case ExportFormat::Otlp:
            ExportOtlp(forest, options.service, context.out);
            break;
        case ExportFormat::Folded:
            ExportFolded(forest, options.weight, context.out);
            break;
        case ExportFormat::Pprof:
            ExportPprof(forest, context.out);
            break;
    }
    SayWhatIsGuessed(forest, context);
    return input.Finish();
}

}  // namespace tarnview
