#include "LoggedTrees.h"

#include "model/ActivityForest.h"
#include "model/Joiner.h"
#include "model/LogCheck.h"
#include "read/LogScanner.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unordered_map>
#include <utility>

namespace packagesearch {

namespace {

using nlohmann::json;

json Table(const std::string& text) {
    return text.empty() ? json::object() : json::parse(text);
}

void AppendPair(std::string& text, const std::string& name, const json& value) {
    text.append(text.empty() ? "" : " ").append(name).append("=");
    text.append(value.is_string() ? value.get<std::string>() : value.dump());
}

// Supplements say when they were written; tests compare the rest.
std::string Supplement(const json& table) {
    std::string text;
    for (const auto& [name, value] : table.items()) {
        if (name != "begin") {
            AppendPair(text, name, value);
        }
    }
    return text;
}

void AddBody(const std::string& text, LoggedActivity& activity) {
    const json table = Table(text);
    for (const auto& [name, value] : table.items()) {
        if (name == "logs") {
            for (const json& supplement : value) {
                activity.supplements.push_back(Supplement(supplement));
            }
        } else if (name != "sDepth") {
            AppendPair(activity.body, name, value);
        }
    }
}

LoggedActivity WithTexts(const tarnview::Activity& read) {
    LoggedActivity activity{read, {}, {}, {}, {}};
    AddBody(read.beginBody, activity);
    AddBody(read.endBody, activity);
    const json details = Table(read.resultDetails);
    for (const auto& [name, value] : details.items()) {
        AppendPair(activity.details, name, value);
    }
    return activity;
}

// A log with its rotated files.
tarnview::LogScanner ScannerOf(const std::filesystem::path& log, tarnview::Problems& problems) {
    return {tarnview::FilesToRead({log.string()}, true), problems};
}

// Shows the lines to what takes them. The places of the lines refer to names that the scanner
// holds.
template <class Taker>
void Scan(tarnview::LogScanner& scanner, const tarnview::ParserOptions& options, Taker& taker) {
    scanner.Scan(options, [&](const tarnview::LogLine& line, const tarnview::Place& place) {
        taker.Take(line, place);
    });
    taker.Finish();
}

}  // namespace

const LoggedActivity* LoggedTrees::First(std::string_view name) const {
    const auto found = std::find_if(activities.begin(),
                                    activities.end(),
                                    [name](const auto& activity) { return activity.name == name; });
    return found == activities.end() ? nullptr : &*found;
}

std::size_t LoggedTrees::Count(std::string_view name) const {
    return static_cast<std::size_t>(
        std::count_if(activities.begin(), activities.end(), [name](const auto& activity) {
            return activity.name == name;
        }));
}

LoggedTrees ReadLog(const std::filesystem::path& log) {
    std::ostringstream ignored;
    tarnview::Problems problems(ignored);
    tarnview::LogScanner scanner = ScannerOf(log, problems);
    tarnview::ActivityForest forest;
    tarnview::Joiner joiner(
        problems, [&](tarnview::Activity&& activity) { forest.Add(std::move(activity)); });
    Scan(scanner, {.wantsTables = true}, joiner);
    forest.Link(problems);
    LoggedTrees trees;
    std::unordered_map<std::size_t, std::size_t> placeOf;  // in the list, by that in the forest
    for (const tarnview::ActivityForest::Index top : forest.Tops()) {
        for (const tarnview::ActivityForest::Step& step : forest.PreOrder(top)) {
            const std::size_t place = trees.activities.size();
            placeOf[step.index] = place;
            trees.activities.push_back(WithTexts(forest[step.index]));
            if (step.index != top) {
                trees.activities[placeOf.at(forest.ParentOf(step.index))].children.push_back(place);
            }
        }
    }
    return trees;
}

std::string WhatIsWrongWith(const std::filesystem::path& log,
                            std::vector<tarnview::ProblemKind> ignored) {
    std::ostringstream out;
    tarnview::Problems problems(out);
    // Lines are numbered over all sessions of a process: a later test's log begins with any number.
    problems.Ignore(tarnview::ProblemKind::MissingLines);
    for (const tarnview::ProblemKind kind : ignored) {
        problems.Ignore(kind);
    }
    const tarnview::Filter everything;
    tarnview::LogCheck check(problems, everything);
    tarnview::LogScanner scanner = ScannerOf(log, problems);
    Scan(scanner, {.isStrict = true}, check);
    return out.str() + problems.Summary();
}

}  // namespace packagesearch
