#include "commands/ReportCommand.h"

#include "commands/LoadTrees.h"
#include "report/ReportPage.h"

namespace tarnview {

int RunReport(const ReportOptions& options, Context& context) {
    Input input(options.input, context);
    std::vector<std::string> roots;
    const ActivityForest forest =
        LoadSelected(input, options.filter, options.order, options.count, roots);
    WriteReportPage(forest, context.out);
    SayWhatIsGuessed(forest, context);
    return input.Finish();
}

}  // namespace tarnview
