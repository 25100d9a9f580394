#include "ActivityTree.h"

#include "tarn/ActivityTokens.h"

#include "cvlcoreplatform/TString.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace packagesearch {

namespace {

std::size_t NameWidth(const LogReport& report, const LoggedActivity& activity) {
    std::size_t width = activity.name.size();
    for (const std::size_t child : activity.children) {
        width = std::max(width, 2 + NameWidth(report, report.activities[child]));
    }
    return width;
}

void PrintRow(std::ostream& out,
              std::size_t indent,
              std::size_t width,
              const LoggedActivity& activity) {
    out << std::string(indent, ' ') << std::left << std::setw(static_cast<int>(width - indent))
        << activity.name << std::right << std::fixed << std::setprecision(3) << std::setw(10)
        << activity.elapsed << " s" << std::setw(10) << activity.exclusive << " s" << std::setw(9)
        << activity.threadId;
    if (!activity.attributes.empty()) {
        out << "  " << activity.attributes;
    }
    if (activity.result.empty()) {
        out << "  (never ended)";
    } else if (activity.result != TString(ActivityTokens::resultOk).ToUtf8()) {
        out << "  (" << activity.result << ")";
    }
    out << '\n';
}

void PrintRows(std::ostream& out,
               const LogReport& report,
               const LoggedActivity& activity,
               std::size_t indent,
               std::size_t width) {
    PrintRow(out, indent, width, activity);
    for (const std::size_t child : activity.children) {
        PrintRows(out, report, report.activities[child], indent + 2, width);
    }
}

}  // namespace

void PrintTree(std::ostream& out, const LogReport& report, const LoggedActivity& root) {
    const std::size_t width = std::max<std::size_t>(NameWidth(report, root), 8);
    out << std::left << std::setw(static_cast<int>(width)) << "activity" << std::right
        << std::setw(12) << "elapsed" << std::setw(12) << "exclusive" << std::setw(9) << "thread"
        << "  attributes\n";
    PrintRows(out, report, root, 0, width);
}

}  // namespace packagesearch
