#include "output/TreePrinter.h"

#include "output/Units.h"

#include <algorithm>
#include <cmath>
#include <ostream>
#include <simdjson.h>
#include <utility>

namespace tarnview {

namespace {

using simdjson::dom::element;

constexpr std::size_t barWidth = 20;
constexpr std::size_t leastFigureWidth = 9;
constexpr std::size_t leastOutcome = 24;  // that is kept free on a narrow terminal
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
    return ProcessName(activity.process) + ":" + std::to_string(activity.beginThread);
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

std::string MessageText(const Message& message, const TimeStyle& times) {
    const std::string severity = message.severity.empty() ? "" : message.severity + "  ";
    return times.Text(message.time) + "  " + severity + message.text;
}

std::string LinkNote(LinkKind kind) {
    const std::string_view text = TextOf(kind);
    return text.empty() ? "" : "(caller " + std::string(text) + ")";
}

TreePrinter::TreePrinter(std::ostream& out,
                         const Terminal& terminal,
                         const TimeStyle& times,
                         Options options)
    : m_out(out),
      m_terminal(terminal),
      m_times(times),
      m_options(std::move(options)) {}

void TreePrinter::Print(const ActivityForest& forest, ActivityForest::Index top) {
    const Activity& activity = forest[top];
    Microseconds end = activity.end;
    for (const ActivityForest::Step& step : forest.PreOrder(top)) {
        end = std::max(end, forest[step.index].end);
    }
    const Span whole{activity.begin, activity.hasEnd ? activity.Duration() : end - activity.begin};
    const std::vector<FoldedRow> folded =
        FoldSiblings(forest, top, m_options.most, m_options.depth);
    std::vector<Row> rows;
    rows.reserve(folded.size());
    for (const FoldedRow& row : folded) {
        rows.push_back(RowOf(forest, row, whole));
    }
    const Columns columns = ColumnsFor(rows);
    PrintTitle(activity);
    Row heading;
    for (std::size_t index = 0; index < columnCount; ++index) {
        heading.cells[index] = columns[index].heading;
    }
    heading.outcome = "result";
    heading.colour = Colour::Bold;
    PrintLine(columns, heading);
    for (std::size_t index = 0; index < rows.size(); ++index) {
        PrintLine(columns, rows[index]);
        if (!folded[index].isGroup) {
            PrintBelow(forest[folded[index].index],
                       folded[index].index,
                       IndentOf(folded[index].level).size() + 2);
        }
    }
}

void TreePrinter::PrintTitle(const Activity& activity) {
    std::string title = m_times.Text(activity.begin) + "  root " + activity.root;
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
    m_out << m_terminal.Paint(Fitted(OnOneLine(title), 0), Colour::Faint) << '\n';
    if (!activity.description.empty() && activity.description != "-") {
        m_out << m_terminal.Paint(Fitted(OnOneLine(activity.description), 0), Colour::Bold) << '\n';
    }
    if (activity.id != activity.root && !activity.sponsor.empty()) {
        m_out << m_terminal.Paint(
                     Fitted("its sponsor is not in the log: " + OnOneLine(activity.sponsor), 0),
                     Colour::Yellow)
              << '\n';
    }
}

TreePrinter::Row TreePrinter::RowOf(const ActivityForest& forest,
                                    const FoldedRow& folded,
                                    const Span& whole) const {
    Row row;
    const Activity& activity = forest[folded.index];
    const Microseconds wholeEnd = whole.begin + whole.length;
    Span part{activity.begin, activity.hasEnd ? activity.Duration() : wholeEnd - activity.begin};
    if (folded.isGroup) {
        const SiblingGroup& group = folded.group;
        const bool hasEnded = group.ended == group.members.size();
        part = {group.begin, (hasEnded ? group.end : wholeEnd) - group.begin};
        FillGroup(forest, folded, row);
    } else {
        FillActivity(forest, folded.index, row);
    }
    row.cells[Name].insert(0, IndentOf(folded.level));
    row.cells[Time] = Bar(whole, part);
    const bool isFailure = activity.hasEnd && activity.result != "ok";
    if (!folded.isGroup || isFailure || !activity.hasEnd) {
        row.colour = isFailure ? Colour::Red : Colour::Yellow;
    }
    return row;
}

void TreePrinter::FillActivity(const ActivityForest& forest,
                               ActivityForest::Index index,
                               Row& row) const {
    const Activity& activity = forest[index];
    const Figures& figures = activity.figures;
    row.cells[Name] = activity.name;
    if (m_options.labelOf) {
        const std::string label = m_options.labelOf(activity);
        row.cells[Name] += label.empty() ? "" : " " + label;
    }
    row.cells[Elapsed] = DurationText(activity);
    row.cells[Exclusive] = ExclusiveText(forest, index);
    row.cells[Self] = SelfText(forest, index);
    row.cells[Cpu] = figures.hasCpu ? FormatDuration(figures.CpuInclusive() / 1e6) : "";
    row.cells[Memory] = figures.hasAllocated ? FormatBytes(figures.ai) : "";
    row.cells[Threads] = figures.hasThreads ? std::to_string(std::llround(figures.threads)) : "";
    row.cells[Thread] = ThreadText(activity);
    row.outcome = OutcomeOf(activity);
    row.link = LinkNote(forest.LinkOf(index));
}

void TreePrinter::FillGroup(const ActivityForest& forest, const FoldedRow& folded, Row& row) {
    const SiblingGroup& group = folded.group;
    const Activity& slowest = forest[group.slowest];
    const auto duration = [&](double microseconds, std::uint64_t count) {
        return count == 0 ? "" : FormatDuration(microseconds / 1e6);
    };
    row.cells[Name] = forest[folded.index].name + " x " + FormatCount(group.members.size());
    row.cells[Elapsed] = duration(static_cast<double>(group.total), group.ended);
    row.cells[Exclusive] = duration(static_cast<double>(group.exclusive), group.ended);
    row.cells[Self] = duration(static_cast<double>(group.self), group.ended);
    row.cells[Cpu] = duration(group.cpu, group.cpuCount);
    row.cells[Memory] = group.memoryCount == 0 ? "" : FormatBytes(group.memory);
    if (group.ended == 0) {
        row.outcome = "never ended";
        return;
    }
    row.outcome = "p50 " + FormatDuration(static_cast<double>(group.median) / 1e6) + ", max " +
                  FormatDuration(static_cast<double>(slowest.Duration()) / 1e6);
    if (slowest.result != "ok") {
        row.outcome += ", each " + slowest.result;
    }
}

std::string TreePrinter::IndentOf(std::size_t level) {
    return std::string(std::min(2 * level, deepestIndent), ' ');
}

TreePrinter::Columns TreePrinter::ColumnsFor(const std::vector<Row>& rows) const {
    Columns columns{{{"activity", 8, 0, true, 0},
                     {"elapsed", leastFigureWidth, 1, false, 0},
                     {"exclusive", leastFigureWidth, 1, false, 6},
                     {"self", leastFigureWidth, 1, false, 2},
                     {"cpu", leastFigureWidth, 1, false, 3},
                     {"memory", leastFigureWidth, 1, false, 5},
                     {"threads", 7, 1, false, 7},
                     {"process:thread", 15, 2, true, 4},
                     {"time", barWidth, 2, true, 1}}};
    std::size_t widestFigure = leastFigureWidth;
    std::size_t widestOutcome = 0;
    for (const Row& row : rows) {
        columns[Name].width = std::max(columns[Name].width, TextWidth(row.cells[Name]));
        for (const Place place : {Elapsed, Exclusive, Self, Cpu, Memory}) {
            widestFigure = std::max(widestFigure, TextWidth(row.cells[place]));
        }
        widestOutcome = std::max(widestOutcome, TextWidth(row.outcome));
    }
    columns[Name].width = std::min(columns[Name].width, widestName);
    for (const Place place : {Elapsed, Exclusive, Self, Cpu, Memory}) {
        columns[place].width = widestFigure;
    }
    if (m_terminal.width == 0) {
        return columns;
    }
    const auto total = [&] {
        std::size_t sum = widestOutcome == 0 ? 0 : std::min(widestOutcome, leastOutcome) + 2;
        for (const Column& column : columns) {
            sum += column.isShown ? column.gap + column.width : 0;
        }
        return sum;
    };
    while (total() > m_terminal.width) {
        const auto least =
            std::max_element(columns.begin(), columns.end(), [](const Column& a, const Column& b) {
                return (a.isShown ? a.rank : 0) < (b.isShown ? b.rank : 0);
            });
        if (!least->isShown || least->rank == 0) {
            const std::size_t surplus = total() - m_terminal.width;
            columns[Name].width -= std::min(surplus, columns[Name].width - 1);
            break;
        }
        least->isShown = false;
    }
    return columns;
}

// Cut to what is left of the terminal behind `used` columns.
std::string TreePrinter::Fitted(const std::string& text, std::size_t used) const {
    if (m_terminal.width == 0 || used + TextWidth(text) <= m_terminal.width) {
        return text;
    }
    return used >= m_terminal.width ? "" : FitLeft(text, m_terminal.width - used);
}

void TreePrinter::PrintLine(const Columns& columns, const Row& row) {
    std::string text;
    std::size_t used = 0;
    const bool isPainted = !row.outcome.empty();
    for (std::size_t index = 0; index < columnCount; ++index) {
        const Column& column = columns[index];
        if (column.isShown) {
            const std::string cell = OnOneLine(row.cells[index]);
            const std::string fitted =
                column.isText ? FitLeft(cell, column.width) : FitRight(cell, column.width);
            text.append(column.gap, ' ');
            text += index == Time && !isPainted ? m_terminal.Paint(fitted, Colour::Cyan) : fitted;
            used += column.gap + column.width;
        }
    }
    const std::string outcome = isPainted ? Fitted("  " + OnOneLine(row.outcome), used) : "";
    const std::string link =
        row.link.empty() ? "" : Fitted("  " + row.link, used + TextWidth(outcome));
    if (isPainted) {
        text = m_terminal.Paint(text + outcome, row.colour);
    }
    m_out << text << (link.empty() ? "" : m_terminal.Paint(link, Colour::Faint)) << '\n';
}

void TreePrinter::PrintFaint(std::size_t indent, const std::string& text) {
    m_out << std::string(indent, ' ')
          << m_terminal.Paint(Fitted(OnOneLine(text), indent), Colour::Faint) << '\n';
}

void TreePrinter::PrintBelow(const Activity& activity,
                             ActivityForest::Index index,
                             std::size_t indent) {
    if (m_options.showsAttributes) {
        for (const std::string* const table :
             {&activity.attributes, &activity.beginBody, &activity.endBody}) {
            const std::string pairs = PairsOf(*table);
            if (!pairs.empty()) {
                PrintFaint(indent, pairs);
            }
        }
        for (const std::string& supplement : SupplementsOf(activity.endBody)) {
            PrintFaint(indent, "* " + supplement);
        }
    }
    if (m_options.messages != nullptr) {
        for (const Message& message : m_options.messages->Of(index)) {
            PrintFaint(indent, "- " + MessageText(message, m_times));
        }
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
