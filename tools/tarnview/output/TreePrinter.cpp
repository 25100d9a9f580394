#include "output/TreePrinter.h"

#include "output/Units.h"

#include <algorithm>
#include <cmath>
#include <ostream>
#include <simdjson.h>
#include <vector>

namespace tarnview {

namespace {

using simdjson::dom::element;

constexpr std::size_t barWidth = 20;
constexpr std::size_t leastFigureWidth = 9;
constexpr std::size_t threadWidth = 15;
constexpr std::size_t widestName = 60;
constexpr std::size_t deepestIndent = 40;

std::string TextOf(const element& value) {
    return value.is_string() ? std::string(std::string_view(value)) : simdjson::minify(value);
}

// Depths are the library's own bookkeeping, and "-" stands for nothing.
bool SaysSomething(std::string_view name, const element& value) {
    return name != "sDepth" && name != "logs" && TextOf(value) != "-";
}

std::string DurationText(const Activity& activity) {
    return activity.hasEnd ? FormatDuration(static_cast<double>(activity.Duration()) / 1e6) : "?";
}

std::string ExclusiveText(const ActivityForest& forest, ActivityForest::Index index) {
    return forest[index].hasEnd
               ? FormatDuration(static_cast<double>(forest[index].ExclusiveTime()) / 1e6)
               : "?";
}

std::string SelfText(const ActivityForest& forest, ActivityForest::Index index) {
    return forest[index].hasEnd ? FormatDuration(static_cast<double>(forest.SelfTime(index)) / 1e6)
                                : "?";
}

std::string ThreadText(const Activity& activity) {
    return std::to_string(activity.process) + ":" + std::to_string(activity.beginThread);
}

}  // namespace

std::string PairsOf(const std::string& table) {
    simdjson::dom::parser parser;
    simdjson::dom::object members;
    if (table.empty()) {
        return "";
    }
    if (parser.parse(table).get(members) != simdjson::SUCCESS) {
        return "(unreadable)";
    }
    std::string pairs;
    for (const auto member : members) {
        if (SaysSomething(member.key, member.value)) {
            pairs.append(pairs.empty() ? "" : " ").append(member.key).append("=");
            pairs.append(TextOf(member.value));
        }
    }
    return pairs;
}

std::vector<std::string> SupplementsOf(const std::string& body) {
    std::vector<std::string> supplements;
    simdjson::dom::parser parser;
    simdjson::dom::array logs;
    if (parser.parse(body)["logs"].get(logs) == simdjson::SUCCESS) {
        for (const element supplement : logs) {
            supplements.push_back(PairsOf(simdjson::minify(supplement)));
        }
    }
    return supplements;
}

std::string OutcomeOf(const Activity& activity) {
    if (!activity.hasEnd) {
        return "never ended";
    }
    if (activity.result == "ok") {
        return activity.hasBegin ? "" : "begin is not in the log";
    }
    const std::string details = PairsOf(activity.resultDetails);
    return activity.result + (details.empty() ? "" : ": " + details);
}

std::string LinkNote(LinkKind kind) {
    const std::string_view text = TextOf(kind);
    return text.empty() ? "" : "(caller " + std::string(text) + ")";
}

std::array<std::string, TreePrinter::figureCount> TreePrinter::FiguresOf(
    const ActivityForest& forest, ActivityForest::Index index) {
    const Activity& activity = forest[index];
    const Figures& figures = activity.figures;
    return {DurationText(activity),
            ExclusiveText(forest, index),
            SelfText(forest, index),
            figures.hasCpu ? FormatDuration(figures.CpuInclusive() / 1e6) : "",
            figures.hasAllocated ? FormatBytes(figures.ai) : ""};
}

TreePrinter::TreePrinter(std::ostream& out, const Terminal& terminal, Options options)
    : m_out(out),
      m_terminal(terminal),
      m_options(options) {}

void TreePrinter::Print(const ActivityForest& forest, ActivityForest::Index top) {
    const std::vector<ActivityForest::Step> steps = forest.PreOrder(top);
    Widths widths{8, leastFigureWidth};
    Microseconds end = forest[top].end;
    for (const auto& [index, level] : steps) {
        if (m_options.depth == 0 || level < m_options.depth) {
            widths.name = std::max(widths.name, 2 * level + TextWidth(forest[index].name));
            for (const std::string& figure : FiguresOf(forest, index)) {
                widths.figure = std::max(widths.figure, TextWidth(figure));
            }
        }
        end = std::max(end, forest[index].end);
    }
    widths.name = std::min(widths.name, widestName);
    const Activity& activity = forest[top];
    const Span whole{activity.begin, activity.hasEnd ? activity.Duration() : end - activity.begin};
    PrintTitle(activity);
    PrintHeading(widths);
    for (const ActivityForest::Step& step : steps) {
        if (m_options.depth == 0 || step.level < m_options.depth) {
            PrintRow(forest, step, whole, widths);
        }
    }
}

void TreePrinter::PrintTitle(const Activity& activity) {
    std::string title = FormatTimestamp(activity.begin) + "  root " + activity.root;
    const auto add = [&](const char* name, const std::string& text) {
        if (!text.empty() && text != "-") {
            title.append("  ").append(name).append(" ").append(text);
        }
    };
    if (!activity.hasSeveralRequests) {
        add("request", activity.request);
    }
    add("user", activity.user);
    add("site", activity.site);
    m_out << m_terminal.Paint(OnOneLine(title), Colour::Faint) << '\n';
    if (!activity.description.empty() && activity.description != "-") {
        m_out << m_terminal.Paint(OnOneLine(activity.description), Colour::Bold) << '\n';
    }
    if (activity.id != activity.root && !activity.sponsor.empty()) {
        m_out << m_terminal.Paint("its sponsor is not in the log: " + OnOneLine(activity.sponsor),
                                  Colour::Yellow)
              << '\n';
    }
}

void TreePrinter::PrintHeading(const Widths& widths) {
    std::string heading = FitLeft("activity", widths.name);
    for (const char* const column : {"elapsed", "exclusive", "self", "cpu", "memory"}) {
        heading += " " + FitRight(column, widths.figure);
    }
    heading += " " + FitRight("threads", 7) + "  " + FitLeft("process:thread", threadWidth) + "  " +
               FitLeft("time", barWidth) + "  result";
    m_out << m_terminal.Paint(heading, Colour::Bold) << '\n';
}

void TreePrinter::PrintRow(const ActivityForest& forest,
                           const ActivityForest::Step& step,
                           const Span& whole,
                           const Widths& widths) {
    const Activity& activity = forest[step.index];
    const std::size_t indent = std::min(2 * step.level, deepestIndent);
    std::string row =
        std::string(indent, ' ') + FitLeft(OnOneLine(activity.name), widths.name - indent);
    for (const std::string& figure : FiguresOf(forest, step.index)) {
        row += " " + FitRight(figure, widths.figure);
    }
    const bool hasThreads = activity.figures.hasThreads;
    row +=
        " " + FitRight(hasThreads ? std::to_string(std::llround(activity.figures.threads)) : "", 7);
    row += "  " + FitLeft(ThreadText(activity), threadWidth) + "  ";
    const Microseconds length =
        activity.hasEnd ? activity.Duration() : whole.begin + whole.length - activity.begin;
    const std::string bar = Bar(whole, {activity.begin, length});
    const std::string outcome = OnOneLine(OutcomeOf(activity));
    std::string link = LinkNote(forest.LinkOf(step.index));
    if (!link.empty()) {
        link = "  " + m_terminal.Paint(link, Colour::Faint);
    }
    if (outcome.empty()) {
        m_out << row << m_terminal.Paint(bar, Colour::Cyan) << link << '\n';
    } else {
        const bool isFailure = activity.hasEnd && activity.result != "ok";
        m_out << m_terminal.Paint(row + bar + "  " + outcome,
                                  isFailure ? Colour::Red : Colour::Yellow)
              << link << '\n';
    }
    if (m_options.showsAttributes) {
        PrintDetails(activity, indent + 2);
    }
}

void TreePrinter::PrintDetails(const Activity& activity, std::size_t indent) {
    const std::string margin(indent, ' ');
    for (const std::string* const table :
         {&activity.attributes, &activity.beginBody, &activity.endBody}) {
        const std::string pairs = PairsOf(*table);
        if (!pairs.empty()) {
            m_out << margin << m_terminal.Paint(OnOneLine(pairs), Colour::Faint) << '\n';
        }
    }
    for (const std::string& supplement : SupplementsOf(activity.endBody)) {
        m_out << margin << m_terminal.Paint("* " + OnOneLine(supplement), Colour::Faint) << '\n';
    }
}

// Where in the whole time the part lies. Clocks that differ may put it outside; it stays inside.
std::string TreePrinter::Bar(const Span& whole, const Span& part) {
    const auto cells = static_cast<double>(barWidth);
    const double length = std::max<double>(1, static_cast<double>(whole.length));
    const double from = static_cast<double>(part.begin - whole.begin) / length * cells;
    const double to = from + static_cast<double>(part.length) / length * cells;
    const auto first = static_cast<std::size_t>(std::clamp(from, 0.0, cells - 1));
    const auto last = static_cast<std::size_t>(
        std::clamp(std::ceil(to - 0.001), static_cast<double>(first) + 1, cells));
    return std::string(first, '.') + std::string(last - first, '#') +
           std::string(barWidth - last, '.');
}

}  // namespace tarnview
