#pragma once

#include "read/LogLine.h"

#include <cstdint>
#include <string_view>

namespace tarnview {

/// How a field is read.
enum class FieldKind { Text, Integer, Real, Table, Time, Activity, Resources, Phase, Process };

/// A field of a line or of its activity, and the member that it fills.
struct LineField {
    std::string_view key;
    FieldKind kind;
    std::string_view LogLine::*text = nullptr;
    std::int64_t LogLine::*integer = nullptr;
    double LogLine::*real = nullptr;
};

/// A figure within a group of `res`.
struct FigureField {
    std::string_view key;
    double Figures::*figure;
};

/// A group of `res`.
struct GroupField {
    std::string_view key;
    bool Figures::*isMeasured;
};

constexpr LineField TextField(std::string_view key, std::string_view LogLine::*member) {
    return {key, FieldKind::Text, member};
}

constexpr LineField TableField(std::string_view key, std::string_view LogLine::*member) {
    return {key, FieldKind::Table, member};
}

constexpr LineField IntegerField(std::string_view key, std::int64_t LogLine::*member) {
    return {key, FieldKind::Integer, nullptr, member};
}

constexpr LineField RealField(std::string_view key, double LogLine::*member) {
    return {key, FieldKind::Real, nullptr, nullptr, member};
}

// In the order in which the log has them, so that the next one is mostly the right one.
inline constexpr LineField lineFields[] = {
    {"time", FieldKind::Time},
    TextField("severity", &LogLine::severity),
    TextField("event", &LogLine::event),
    TextField("message", &LogLine::message),
    {"pid", FieldKind::Process},
    IntegerField("tid", &LogLine::thread),
    TextField("session", &LogLine::session),
    TextField("request", &LogLine::request),
    TextField("user", &LogLine::user),
    TextField("site", &LogLine::site),
    TableField("environment", &LogLine::environment),
    {"activity", FieldKind::Activity},
    TableField("attributes", &LogLine::attributes),
    TableField("body", &LogLine::body),
};
inline constexpr LineField activityFields[] = {
    TextField("caller", &LogLine::caller),
    IntegerField("depth", &LogLine::depth),
    RealField("elapsed", &LogLine::elapsed),
    RealField("exclusive", &LogLine::exclusive),
    TextField("id", &LogLine::id),
    TextField("name", &LogLine::name),
    TextField("req-desc", &LogLine::description),
    {"res", FieldKind::Resources},
    TextField("rk", &LogLine::result),
    IntegerField("rnerr", &LogLine::failedChildren),
    IntegerField("rnterm", &LogLine::terminatedChildren),
    TextField("root", &LogLine::root),
    TableField("rv", &LogLine::resultDetails),
    IntegerField("seq", &LogLine::number),
    TextField("sponsor", &LogLine::sponsor),
    {"type", FieldKind::Phase},
};
inline constexpr GroupField groupFields[] = {{"alloc", &Figures::hasAllocated},
                                             {"free", &Figures::hasReleased},
                                             {"kcpu", &Figures::hasCpu},
                                             {"ntid", &Figures::hasThreads},
                                             {"ucpu", &Figures::hasCpu}};
inline constexpr FigureField figureFields[] = {
    {"ae", &Figures::ae},
    {"ai", &Figures::ai},
    {"ane", &Figures::ane},
    {"ani", &Figures::ani},
    {"apeak", &Figures::apeak},
    {"de", &Figures::de},
    {"di", &Figures::di},
    {"dne", &Figures::dne},
    {"dni", &Figures::dni},
    {"ke", &Figures::ke},
    {"ki", &Figures::ki},
    {"ue", &Figures::ue},
    {"ui", &Figures::ui},
};

}  // namespace tarnview
