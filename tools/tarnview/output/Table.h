#pragma once

#include "output/Terminal.h"
#include "output/TimeStyle.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// What a table is printed as: for people, or for programs as CSV or as a JSON object a line.
enum class TableFormat { Text, Csv, Json };

/// A cell of a table: what people read, and what programs do.
struct Cell {
    std::string text{};
    std::string raw{};      ///< plain; empty: nothing is known
    bool isQuoted = false;  ///< a text in JSON, otherwise a number, `true` or `false`
    bool isBad = false;     ///< painted red

    static Cell Text(std::string_view text);
    /// Missing() of an empty text.
    static Cell TextIfAny(std::string_view text);
    /// UTC for programs.
    static Cell Time(Microseconds time, const TimeStyle& style);
    static Cell Number(std::string text, std::string raw);
    static Cell Count(std::uint64_t count);
    /// Microseconds for people, seconds for programs.
    static Cell Duration(double microseconds);
    static Cell Bytes(double bytes);
    static Cell Share(double share);  ///< 0 to 1; for people in percent
    static Cell Boolean(bool value);

    static Cell Missing() { return {}; }

    Cell Bad(bool condition = true) const {
        Cell cell = *this;
        cell.isBad = condition;
        return cell;
    }
};

/// A column. One without a heading is for programs only, one without a field for people only.
struct TableColumn {
    std::string heading;
    std::string field;
    bool isText = false;  ///< to the left, and may be cut
    int rank = 0;  ///< of those that do not fit on a terminal the highest goes first; 0 stays
    bool isIfAny = false;  ///< programs get it only if a row has something there
};

/// Rows of cells under headings. Used by one thread.
class Table {
public:
    explicit Table(std::vector<TableColumn> columns) : m_columns(std::move(columns)) {}

    /// A cell for each column.
    void Add(std::vector<Cell> row) { m_rows.push_back(std::move(row)); }

    std::size_t Rows() const { return m_rows.size(); }

    /// On a terminal of limited width, columns are left out and texts are cut until rows fit.
    void Print(std::ostream& out, const Terminal& terminal, TableFormat format) const;

private:
    struct Shown {
        std::size_t column = 0;
        std::size_t width = 0;
    };

    std::vector<std::size_t> ColumnsForPrograms() const;
    std::vector<Shown> Fitted(std::size_t width) const;
    void PrintText(std::ostream& out, const Terminal& terminal) const;
    void PrintCsv(std::ostream& out, const Terminal& terminal) const;
    void PrintJson(std::ostream& out) const;

    std::vector<TableColumn> m_columns;
    std::vector<std::vector<Cell>> m_rows;
};

/// A field of CSV, quoted where that is needed; on a terminal without what could move its cursor.
std::string CsvField(const std::string& raw, const Terminal& terminal);

}  // namespace tarnview
