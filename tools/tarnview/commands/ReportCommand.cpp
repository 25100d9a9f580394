#include "commands/ReportCommand.h"

#include "commands/LoadTrees.h"
#include "report/ReportPage.h"

namespace tarnview {

int RunReport(const ReportOptions& options, Context& context) {
    Input input(options.input, context);
    std::vector<std::string> roots;
    WriteReportPage(LoadSelected(input, options.filter, options.order, options.count, roots),
                    context.out);
    input.Finish();
    return exitSuccess;
}

}  // namespace tarnview
