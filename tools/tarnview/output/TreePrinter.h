#pragma once

#include "model/ActivityForest.h"
#include "model/FoldedTree.h"
#include "model/Messages.h"
#include "output/Terminal.h"
#include "output/TimeStyle.h"

#include <array>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace tarnview {

/// Prints a tree of activities, a line for each, with figures, a bar that shows which part of the
/// whole time each took, and what failed. On a terminal of limited width columns are left out, the
/// least important ones first, and texts are cut until rows fit. Used by one thread.
class TreePrinter {
public:
    struct Options {
        std::size_t depth = 0;  ///< levels; 0: all
        bool showsAttributes = false;
        std::size_t most = 0;  ///< siblings alike that are not folded; 0: folds none
        /// A text after the name; empty: none.
        std::function<std::string(const Activity&)> labelOf{};
        const Messages* messages = nullptr;  ///< shown below their activities, if there are any
    };

    /// What is passed must live as long.
    TreePrinter(std::ostream& out,
                const Terminal& terminal,
                const TimeStyle& times,
                Options options);

    /// The activity at `top`, all below it, and before it what it is about.
    void Print(const ActivityForest& forest, ActivityForest::Index top);

private:
    struct Span {
        Microseconds begin = 0;
        Microseconds length = 0;
    };

    struct Column {
        const char* heading;
        std::size_t width;
        std::size_t gap;  // before it
        bool isText;
        int rank;  // of those that do not fit the highest goes first; 0 stays
        bool isShown = true;
    };

    enum Place { Name, Elapsed, Exclusive, Self, Cpu, Memory, Threads, Thread, Time };

    static constexpr std::size_t columnCount = 9;
    using Columns = std::array<Column, columnCount>;
    using Cells = std::array<std::string, columnCount>;

    /// What a row says, before it is fitted.
    struct Row {
        Cells cells;
        std::string outcome;
        Colour colour = Colour::Cyan;  // of the row, if it has an outcome
        std::string link;
    };

    void PrintTitle(const Activity& activity);
    void PrintLine(const Columns& columns, const Row& row);
    void PrintBelow(const Activity& activity, ActivityForest::Index index, std::size_t indent);
    void PrintFaint(std::size_t indent, const std::string& text);
    Row RowOf(const ActivityForest& forest, const FoldedRow& folded, const Span& whole) const;
    static void FillGroup(const ActivityForest& forest, const FoldedRow& folded, Row& row);
    void FillActivity(const ActivityForest& forest, ActivityForest::Index index, Row& row) const;
    static std::string IndentOf(std::size_t level);
    Columns ColumnsFor(const std::vector<Row>& rows) const;
    std::string Fitted(const std::string& text, std::size_t used) const;
    static std::string Bar(const Span& whole, const Span& part);

    std::ostream& m_out;
    Terminal m_terminal;
    const TimeStyle& m_times;
    Options m_options;
};

/// What there is to say about a result: "" for "ok", "never ended", "exception: type=..., msg=...".
std::string OutcomeOf(const Activity& activity);

/// "2026-03-01T10:00:00.000000Z  warn  retried"
std::string MessageText(const Message& message, const TimeStyle& times);

/// "" for a parent that the log names, else "(caller guessed)" or the like.
std::string LinkNote(LinkKind kind);

/// The members of a JSON table as "name=value", parted by blanks; those that say nothing are left
/// out. A table that is broken reads "(unreadable)".
std::string PairsOf(const std::string& table);

/// The pairs of each log supplement in the JSON table of an end line's attributes.
std::vector<std::string> SupplementsOf(const std::string& body);

}  // namespace tarnview
