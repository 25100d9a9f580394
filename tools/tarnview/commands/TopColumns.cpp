#include "commands/TopColumns.h"

#include "output/Units.h"

#include <cmath>
#include <cstdio>

namespace tarnview {

namespace {

constexpr std::string_view openName = "open";

std::string Whole(double value) {
    return std::to_string(std::llround(value));
}

std::string Milliseconds(double value) {
    return value == 0 ? "0" : FormatDuration(value / 1e3);
}

// The log cuts off what is less than a millisecond.
std::string OneDuration(double value) {
    return value == 0 ? "<1 ms" : FormatDuration(value / 1e3);
}

std::string Microseconds(double value) {
    return value == 0 ? "0" : FormatDuration(value / 1e6);
}

std::string Bytes(double value) {
    return value == 0 ? "0" : FormatBytes(value);
}

// Seconds with the millisecond as the last digit, or what is needed for a mean.
std::string Seconds(double milliseconds) {
    char text[48];
    const bool isWhole = milliseconds == std::floor(milliseconds);
    std::snprintf(text, sizeof(text), isWhole ? "%.3f" : "%.6f", milliseconds / 1e3);
    return text;
}

template <int PerMille>
double Quantile(const TopRow& row) {
    return static_cast<double>(row.durations.Quantile(PerMille / 1000.0));
}

double Count(const TopRow& row) {
    return static_cast<double>(row.count);
}

double Failed(const TopRow& row) {
    return static_cast<double>(row.failed);
}

double Terminated(const TopRow& row) {
    return static_cast<double>(row.terminated);
}

double Open(const TopRow& row) {
    return static_cast<double>(row.Open());
}

double Total(const TopRow& row) {
    return static_cast<double>(row.total);
}

double Mean(const TopRow& row) {
    return row.Mean();
}

double Maximum(const TopRow& row) {
    return static_cast<double>(row.maximum);
}

double Exclusive(const TopRow& row) {
    return static_cast<double>(row.exclusive);
}

double Cpu(const TopRow& row) {
    return row.cpu;
}

double Memory(const TopRow& row) {
    return row.memory;
}

constexpr TopColumn columns[] = {
    {"count", "count", 8, false, Count, Whole, Whole},
    {"failed", "failed", 7, true, Failed, Whole, Whole},
    {"early", "early_terminations", 6, true, Terminated, Whole, Whole},
    {openName, "open", 6, true, Open, Whole, Whole},
    {"total", "total_seconds", 12, false, Total, Milliseconds, Seconds},
    {"mean", "mean_seconds", 8, false, Mean, Milliseconds, Seconds},
    {"p50", "p50_seconds", 8, false, Quantile<500>, OneDuration, Seconds},
    {"p90", "p90_seconds", 8, false, Quantile<900>, OneDuration, Seconds},
    {"p99", "p99_seconds", 8, false, Quantile<990>, OneDuration, Seconds},
    {"max", "max_seconds", 8, false, Maximum, OneDuration, Seconds},
    {"exclusive", "exclusive_seconds", 12, false, Exclusive, Milliseconds, Seconds},
    {"cpu", "cpu_exclusive_microseconds", 12, false, Cpu, Microseconds, Whole},
    {"memory", "memory_exclusive_bytes", 8, false, Memory, Bytes, Whole},
};

}  // namespace

std::vector<TopColumn> TopColumns(bool countsBegins) {
    std::vector<TopColumn> result;
    for (const TopColumn& column : columns) {
        if (countsBegins || column.name != openName) {
            result.push_back(column);
        }
    }
    return result;
}

const TopColumn* FindTopColumn(std::string_view name) {
    for (const TopColumn& column : columns) {
        if (column.name == name) {
            return &column;
        }
    }
    return nullptr;
}

}  // namespace tarnview
