#pragma once

#include "model/ActivityForest.h"

#include <cstdint>
#include <simdjson.h>
#include <string>
#include <string_view>

namespace tarnview {

/// Takes what a trace viewer is told of an activity beside its name and times.
class ArgumentSink {
public:
    ArgumentSink() = default;
    virtual ~ArgumentSink() = default;
    ArgumentSink(const ArgumentSink&) = delete;
    ArgumentSink& operator=(const ArgumentSink&) = delete;

    virtual void Text(std::string_view name, std::string_view text) = 0;
    virtual void Number(std::string_view name, std::int64_t number) = 0;

    /// An object of JSON, not empty.
    virtual void Table(std::string_view name, std::string_view json) = 0;
};

/// Gives all that the log says of an activity, under the same names for all viewers. What it does
/// not say is left out. Used by one thread.
class ActivityArguments {
public:
    void Give(const ActivityForest& forest, ActivityForest::Index index, ArgumentSink& sink);

private:
    void GiveTable(std::string_view name, const std::string& table, ArgumentSink& sink);

    simdjson::dom::parser m_parser;
};

}  // namespace tarnview
