#include "model/FiguresCheck.h"

#include "read/Rounding.h"

#include <cmath>
#include <cstdio>
#include <utility>

namespace tarnview {

namespace {

constexpr const char* inclusiveNames[] = {"ai", "ani", "di", "dni", "ki + ui"};
constexpr const char* exclusiveNames[] = {"ae", "ane", "de", "dne", "ke + ue"};

std::int64_t Milliseconds(double seconds) {
    return Rounded(seconds * 1e3);
}

std::string Number(double number) {
    char text[48];
    std::snprintf(text, sizeof(text), "%.15g", number);
    return text;
}

}  // namespace

void FiguresCheck::Take(const LogLine& line, const Place& place) {
    if (line.kind == LineKind::Begin) {
        Begin(line);
    } else if (line.kind == LineKind::End) {
        End(line, place);
    }
}

std::string FiguresCheck::KeyOf(const ProcessId& process, std::string_view text) {
    return std::to_string(process.number)
        .append(" ")
        .append(std::to_string(process.host.size()))
        .append(process.host)
        .append(text);
}

// The innermost that is open on the line's thread; null if there is none.
FiguresCheck::NodePointer& FiguresCheck::Innermost(const LogLine& line) {
    NodePointer& innermost = m_innermost[KeyOf(line.process, std::to_string(line.thread))];
    while (innermost && !innermost->isOpen) {
        innermost = innermost->below;
    }
    return innermost;
}

void FiguresCheck::Begin(const LogLine& line) {
    const auto node = std::make_shared<Node>();
    node->root = line.root;
    node->process = line.process;
    node->thread = line.thread;
    node->sponsor = FindSponsor(line);
    NodePointer& innermost = Innermost(line);
    node->below = innermost;
    innermost = node;
    m_open[KeyOf(line.process, line.id)] = node;
}

// A sponsor that the log does not name, as one that is transparent, gives its figures to what it
// runs in; here to the innermost activity of the tree on that thread.
FiguresCheck::NodePointer FiguresCheck::FindSponsor(const LogLine& line) {
    if (line.sponsor.empty() || line.sponsor == line.id || line.sponsor == "-") {
        return nullptr;
    }
    const auto found = m_open.find(KeyOf(line.process, line.sponsor));
    if (found != m_open.end()) {
        return found->second;
    }
    const NodePointer& innermost = Innermost(line);
    return innermost && innermost->root == line.root ? innermost : nullptr;
}

void FiguresCheck::End(const LogLine& line, const Place& place) {
    const auto found = m_open.find(KeyOf(line.process, line.id));
    if (found == m_open.end()) {
        return;
    }
    const NodePointer node = found->second;
    m_open.erase(found);
    node->isOpen = false;
    Compare(line, *node, place);
    Node* parent = node->sponsor.get();
    while (parent != nullptr && !parent->isOpen) {
        parent = parent->sponsor.get();
    }
    if (parent == nullptr) {
        return;
    }
    const Sums own = Inclusive(line.figures);
    for (std::size_t index = 0; index < figureCount; ++index) {
        parent->children[index] += own[index];
    }
    if (parent->thread == line.thread) {
        parent->childrenTime += Milliseconds(line.elapsed);
    }
}

void FiguresCheck::Compare(const LogLine& line, const Node& node, const Place& place) {
    std::string detail;
    const Sums inclusive = Inclusive(line.figures);
    const Sums exclusive = Exclusive(line.figures);
    const std::array<bool, figureCount> isMeasured = {line.figures.hasAllocated,
                                                      line.figures.hasAllocated,
                                                      line.figures.hasReleased,
                                                      line.figures.hasReleased,
                                                      line.figures.hasCpu};
    for (std::size_t index = 0; index < figureCount; ++index) {
        const double expected = exclusive[index] + node.children[index];
        if (isMeasured[index] && std::fabs(inclusive[index] - expected) > 0.5) {
            detail.append(", ").append(inclusiveNames[index]);
            detail.append(" is ").append(Number(inclusive[index])).append(" and not ");
            detail.append(exclusiveNames[index]).append(" ").append(Number(exclusive[index]));
            detail.append(" and the children's ").append(Number(node.children[index]));
        }
    }
    const std::int64_t elapsed = Milliseconds(line.elapsed);
    if (Milliseconds(line.exclusive) != elapsed - node.childrenTime) {
        detail.append(", exclusive is ").append(std::to_string(Milliseconds(line.exclusive)));
        detail.append(" ms and not ").append(std::to_string(elapsed)).append(" ms less the ");
        detail.append(std::to_string(node.childrenTime)).append(" ms of children");
    }
    if (!detail.empty()) {
        m_problems.Report(ProblemKind::Figures,
                          place,
                          std::string(line.name) + " " + std::string(line.id) + detail);
    }
}

FiguresCheck::Sums FiguresCheck::Inclusive(const Figures& figures) {
    return {figures.ai, figures.ani, figures.di, figures.dni, figures.CpuInclusive()};
}

FiguresCheck::Sums FiguresCheck::Exclusive(const Figures& figures) {
    return {figures.ae, figures.ane, figures.de, figures.dne, figures.CpuExclusive()};
}

}  // namespace tarnview
