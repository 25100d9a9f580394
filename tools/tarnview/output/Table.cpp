#include "output/Table.h"

#include "output/Units.h"
#include "read/HarmlessJson.h"
#include "read/Printable.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <ostream>
#include <rapidjson/writer.h>

namespace tarnview {

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t narrowestText = 12;

std::string Plain(const char* format, double number) {
    char text[64];
    std::snprintf(text, sizeof(text), format, number);
    return text;
}

std::string Aligned(const TableColumn& column, const std::string& text, std::size_t width) {
    return column.isText ? FitLeft(text, width) : FitRight(text, width);
}

}  // namespace

Cell Cell::Text(std::string_view text) {
    return {.text = OnOneLine(text), .raw = std::string(text), .isQuoted = true};
}

Cell Cell::TextIfAny(std::string_view text) {
    return text.empty() ? Missing() : Text(text);
}

Cell Cell::Time(Microseconds time, const TimeStyle& style) {
    return {.text = style.Text(time), .raw = FormatTimestamp(time), .isQuoted = true};
}

Cell Cell::Number(std::string text, std::string raw) {
    return {.text = std::move(text), .raw = std::move(raw)};
}

Cell Cell::Count(std::uint64_t count) {
    return Number(std::to_string(count), std::to_string(count));
}

Cell Cell::Duration(double microseconds) {
    return Number(FormatDuration(microseconds / 1e6), Plain("%.6f", microseconds / 1e6));
}

Cell Cell::Bytes(double bytes) {
    return Number(FormatBytes(bytes), Plain("%.0f", bytes));
}

Cell Cell::Share(double share) {
    return Number(Plain("%.1f %%", share * 100), Plain("%.6f", share));
}

Cell Cell::Boolean(bool value) {
    return Number(value ? "yes" : "no", value ? "true" : "false");
}

void Table::Print(std::ostream& out, const Terminal& terminal, TableFormat format) const {
    switch (format) {
        case TableFormat::Text:
            PrintText(out, terminal);
            break;
        case TableFormat::Csv:
            PrintCsv(out, terminal);
            break;
        case TableFormat::Json:
            PrintJson(out);
            break;
    }
}

std::vector<Table::Shown> Table::Fitted(std::size_t width) const {
    std::vector<Shown> shown;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        if (m_columns[column].heading.empty()) {
            continue;
        }
        std::size_t widest = TextWidth(m_columns[column].heading);
        for (const std::vector<Cell>& row : m_rows) {
            widest = std::max(widest, TextWidth(row[column].text));
        }
        shown.push_back({column, widest});
    }
    const auto total = [&] {
        return std::accumulate(
            shown.begin(), shown.end(), std::size_t{0}, [](std::size_t sum, const Shown& it) {
                return sum + it.width + gap;
            });
    };
    const auto rank = [&](const Shown& it) { return m_columns[it.column].rank; };
    const auto isWider = [&](const Shown& a, const Shown& b) {
        const auto room = [&](const Shown& it) {
            return m_columns[it.column].isText ? it.width : 0;
        };
        return room(a) < room(b);
    };
    while (width != 0 && total() > width + gap) {
        // Texts give way down to a width at which they still say something; then columns go.
        const auto widest = std::max_element(shown.begin(), shown.end(), isWider);
        const auto least =
            std::max_element(shown.begin(), shown.end(), [&](const Shown& a, const Shown& b) {
                return rank(a) < rank(b);
            });
        const std::size_t surplus = total() - width - gap;
        if (m_columns[widest->column].isText && widest->width > narrowestText &&
            (rank(*least) == 0 || widest->width >= narrowestText + surplus)) {
            widest->width =
                std::max(narrowestText, widest->width - std::min(surplus, widest->width));
        } else if (rank(*least) != 0) {
            shown.erase(least);
        } else {
            break;
        }
    }
    return shown;
}

void Table::PrintText(std::ostream& out, const Terminal& terminal) const {
    const std::vector<Shown> shown = Fitted(terminal.width);
    const auto line = [&](const auto& cellOf) {
        std::string text;
        std::string blanks;
        for (const Shown& it : shown) {
            // Blanks at the end of a line say nothing.
            text += blanks + cellOf(it);
            blanks = std::string(gap, ' ');
        }
        return text;
    };
    const auto trimmed = [](std::string text) {
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    };
    const std::string heading = line([&](const Shown& it) {
        return Aligned(m_columns[it.column], m_columns[it.column].heading, it.width);
    });
    out << terminal.Paint(trimmed(heading), Colour::Bold) << '\n';
    for (const std::vector<Cell>& row : m_rows) {
        const std::string text = line([&](const Shown& it) {
            const Cell& cell = row[it.column];
            const std::string aligned = Aligned(m_columns[it.column], cell.text, it.width);
            return cell.isBad ? terminal.Paint(aligned, Colour::Red) : aligned;
        });
        out << trimmed(text) << '\n';
    }
}

std::vector<std::size_t> Table::ColumnsForPrograms() const {
    std::vector<std::size_t> columns;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        const TableColumn& it = m_columns[column];
        const auto hasIt = [column](const std::vector<Cell>& row) {
            return !row[column].raw.empty();
        };
        if (!it.field.empty() &&
            (!it.isIfAny || std::any_of(m_rows.begin(), m_rows.end(), hasIt))) {
            columns.push_back(column);
        }
    }
    return columns;
}

std::string CsvField(const std::string& raw, const Terminal& terminal) {
    const std::string text = terminal.isInteractive ? Printable(raw) : raw;
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char character : text) {
        quoted.append(character == '"' ? 2 : 1, character);
    }
    return quoted + "\"";
}

void Table::PrintCsv(std::ostream& out, const Terminal& terminal) const {
    const std::vector<std::size_t> columns = ColumnsForPrograms();
    const auto line = [&](const auto& fieldOf) {
        const char* separator = "";
        for (const std::size_t column : columns) {
            out << separator << CsvField(fieldOf(column), terminal);
            separator = ",";
        }
        out << '\n';
    };
    line([&](std::size_t column) { return m_columns[column].field; });
    for (const std::vector<Cell>& row : m_rows) {
        line([&](std::size_t column) { return row[column].raw; });
    }
}

void Table::PrintJson(std::ostream& out) const {
    const std::vector<std::size_t> columns = ColumnsForPrograms();
    HarmlessJson stream(out);
    rapidjson::Writer<HarmlessJson> writer(stream);
    for (const std::vector<Cell>& row : m_rows) {
        writer.Reset(stream);
        writer.StartObject();
        for (const std::size_t column : columns) {
            const Cell& cell = row[column];
            const std::string& field = m_columns[column].field;
            writer.Key(field.data(), static_cast<rapidjson::SizeType>(field.size()));
            if (cell.isQuoted) {
                writer.String(cell.raw.data(), static_cast<rapidjson::SizeType>(cell.raw.size()));
            } else if (cell.raw.empty()) {
                writer.Null();
            } else {
                writer.RawValue(cell.raw.data(), cell.raw.size(), rapidjson::kNumberType);
            }
        }
        writer.EndObject();
        out << '\n';
    }
}

}  // namespace tarnview
