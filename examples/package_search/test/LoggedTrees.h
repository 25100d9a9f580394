#pragma once

#include "activity/Activity.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace packagesearch {

/// An activity as tarnview reads it, with its tables as texts that tests compare.
struct LoggedActivity : tarnview::Activity {
    std::string details;                   ///< of the result: "name=value" with blanks between
    std::string body;                      ///< "name=value" of both lines, with blanks between
    std::vector<std::string> supplements;  ///< one for each, "name=value" with blanks between
    std::vector<std::size_t> children;     ///< places in the list, in the order they began
};

/// What a log holds: each activity before its parts, trees in the order in which they began.
struct LoggedTrees {
    std::vector<LoggedActivity> activities;

    /// The first one with this name; null without any.
    const LoggedActivity* First(std::string_view name) const;

    std::size_t Count(std::string_view name) const;
};

LoggedTrees ReadLog(const std::filesystem::path& log);

/// What `tarnview check` finds wrong with a log, figures that do not add up included, but for what
/// is ignored; empty when it is whole.
std::string WhatIsWrongWith(const std::filesystem::path& log,
                            std::vector<tarnview::ProblemKind> ignored = {});

}  // namespace packagesearch
