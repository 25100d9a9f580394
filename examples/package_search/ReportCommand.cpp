#include "ReportCommand.h"

#include "ActivityNames.h"
#include "LogReport.h"
#include "RequestTree.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace packagesearch {

namespace {

using Activities = std::vector<const LoggedActivity*>;

Activities WithRoot(Activities tops, const std::string& root) {
    tops.erase(
        std::remove_if(
            tops.begin(), tops.end(), [&root](const auto* top) { return top->root != root; }),
        tops.end());
    if (tops.empty()) {
        throw std::runtime_error("the logs hold no request with the id '" + root + "'");
    }
    return tops;
}

// Of the requests of clients; in logs without any, of everything.
Activities Slowest(Activities tops, std::size_t count) {
    const auto others = std::stable_partition(tops.begin(), tops.end(), [](const auto* top) {
        return top->name == activity::httpRequest;
    });
    if (others != tops.begin()) {
        tops.erase(others, tops.end());
    }
    std::stable_sort(tops.begin(), tops.end(), [](const auto* a, const auto* b) {
        return a->elapsed > b->elapsed;
    });
    tops.resize(std::min(tops.size(), count));
    return tops;
}

void PrintTrees(std::ostream& out, const LogReport& report, const Activities& requests) {
    const char* separator = "";
    for (const LoggedActivity* request : requests) {
        out << separator;
        PrintRequest(out, report, *request);
        separator = "\n";
    }
}

void PrintFailed(std::ostream& out, const Activities& tops) {
    const auto failed =
        std::count_if(tops.begin(), tops.end(), [](const auto* top) { return HasFailed(*top); });
    out << failed << " of " << tops.size() << " requests failed.\n";
    for (const LoggedActivity* top : tops) {
        if (HasFailed(*top)) {
            PrintRequestLine(out, *top);
        }
    }
}

}  // namespace

void RunReport(const ReportOptions& options, std::ostream& out) {
    const LogReport report = ReadLogs(options.logs);
    const Activities tops = TopActivities(report);
    if (options.failed) {
        PrintFailed(out, tops);
    } else if (!options.root.empty()) {
        PrintTrees(out, report, WithRoot(tops, options.root));
    } else if (tops.empty()) {
        throw std::runtime_error("the logs hold no request");
    } else {
        PrintTrees(out, report, Slowest(tops, options.slowest));
    }
    if (report.unreadableLines != 0) {
        out << report.unreadableLines << " lines of the logs could not be read.\n";
    }
}

}  // namespace packagesearch
