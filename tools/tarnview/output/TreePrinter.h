#pragma once

#include "model/ActivityForest.h"
#include "output/Terminal.h"

#include <array>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace tarnview {

/// Prints a tree of activities, a line for each, with figures, a bar that shows which part of the
/// whole time each took, and what failed.
class TreePrinter {
public:
    struct Options {
        std::size_t depth = 0;  ///< levels; 0: all
        bool showsAttributes = false;
    };

    TreePrinter(std::ostream& out, const Terminal& terminal, Options options);

    /// The activity at `top`, all below it, and before it what it is about.
    void Print(const ActivityForest& forest, ActivityForest::Index top);

private:
    struct Span {
        Microseconds begin = 0;
        Microseconds length = 0;
    };

    struct Widths {
        std::size_t name = 0;
        std::size_t figure = 0;
    };

    static constexpr std::size_t figureCount = 5;

    void PrintTitle(const Activity& activity);
    void PrintHeading(const Widths& widths);
    void PrintRow(const ActivityForest& forest,
                  const ActivityForest::Step& step,
                  const Span& whole,
                  const Widths& widths);
    void PrintDetails(const Activity& activity, std::size_t indent);
    static std::array<std::string, figureCount> FiguresOf(const ActivityForest& forest,
                                                          ActivityForest::Index index);
    static std::string Bar(const Span& whole, const Span& part);

    std::ostream& m_out;
    Terminal m_terminal;
    Options m_options;
};

/// What there is to say about a result: "" for "ok", "never ended", "exception: type=..., msg=...".
std::string OutcomeOf(const Activity& activity);

/// "" for a parent that the log names, else "(caller guessed)" or the like.
std::string LinkNote(LinkKind kind);

/// The members of a JSON table as "name=value", parted by blanks; those that say nothing are left
/// out. A table that is broken reads "(unreadable)".
std::string PairsOf(const std::string& table);

/// The pairs of each log supplement in the JSON table of an end line's attributes.
std::vector<std::string> SupplementsOf(const std::string& body);

}  // namespace tarnview
