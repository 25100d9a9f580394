#include "commands/TopColumns.h"

#include "output/Units.h"

#include <cmath>
#include <cstdio>

namespace tarnview {

namespace {

std::string Whole(double value) {
    return std::to_string(std::llround(value));
}

std::string Duration(double microseconds) {
    return FormatDuration(microseconds / 1e6);
}

std::string Seconds(double microseconds) {
    char text[48];
    std::snprintf(text, sizeof(text), "%.6f", microseconds / 1e6);
    return text;
}

template <auto member>
std::optional<double> Count(const TopRow& row) {
    return static_cast<double>(row.*member);
}

// A time of what has ended, if anything has.
template <auto member>
std::optional<double> Time(const TopRow& row) {
    return row.count == 0 ? std::nullopt : std::optional(static_cast<double>(row.*member));
}

std::optional<double> Mean(const TopRow& row) {
    return row.count == 0 ? std::nullopt : std::optional(row.Mean());
}

template <int PerMille>
std::optional<double> Quantile(const TopRow& row) {
    return row.count == 0
               ? std::nullopt
               : std::optional(static_cast<double>(row.durations.Quantile(PerMille / 1000.0)));
}

std::optional<double> Cpu(const TopRow& row) {
    return row.cpuCount == 0 ? std::nullopt : std::optional(row.cpu);
}

std::optional<double> Memory(const TopRow& row) {
    return row.memoryCount == 0 ? std::nullopt : std::optional(row.memory);
}

}  // namespace

const std::vector<TopColumn>& TopColumns() {
    static const std::vector<TopColumn> columns{
        {"count", "count", 8, false, Count<&TopRow::count>, Whole, Whole, 0},
        {"failed", "failed", 7, true, Count<&TopRow::failed>, Whole, Whole, 2},
        {"early", "early_terminations", 6, true, Count<&TopRow::terminated>, Whole, Whole, 8},
        {"open", "open", 6, true, Count<&TopRow::open>, Whole, Whole, 9},
        {"total", "total_seconds", 12, false, Time<&TopRow::total>, Duration, Seconds, 0},
        {"mean", "mean_seconds", 8, false, Mean, Duration, Seconds, 7},
        {"p50", "p50_seconds", 8, false, Quantile<500>, Duration, Seconds, 4},
        {"p90", "p90_seconds", 8, false, Quantile<900>, Duration, Seconds, 11},
        {"p99", "p99_seconds", 8, false, Quantile<990>, Duration, Seconds, 3},
        {"max", "max_seconds", 8, false, Time<&TopRow::maximum>, Duration, Seconds, 5},
        {"exclusive",
         "exclusive_seconds",
         12,
         false,
         Time<&TopRow::exclusive>,
         Duration,
         Seconds,
         1},
        {"cpu", "cpu_exclusive_microseconds", 12, false, Cpu, Duration, Whole, 6},
        {"memory", "memory_exclusive_bytes", 8, false, Memory, FormatBytes, Whole, 10},
    };
    return columns;
}

const TopColumn* FindTopColumn(std::string_view name) {
    for (const TopColumn& column : TopColumns()) {
        if (column.name == name) {
            return &column;
        }
    }
    return nullptr;
}

}  // namespace tarnview
