#include "commands/OpenCommand.h"

#include "commands/Input.h"
#include "model/Joiner.h"
#include "output/Units.h"
#include "read/FollowedFile.h"

#include <algorithm>
#include <list>
#include <ostream>
#include <thread>

namespace tarnview {

namespace {

Microseconds Now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The names from the top of the tree down to the activity's sponsor, as far as they are running.
std::string ChainOf(const Joiner& joiner, const Activity& activity) {
    constexpr int longestChain = 64;
    std::string chain;
    const Activity* current = &activity;
    for (int length = 0; length < longestChain; ++length) {
        const std::string& sponsor =
            current->sponsor != current->id ? current->sponsor : current->root;
        const Activity* const next =
            sponsor.empty() || sponsor == current->id ? nullptr : joiner.FindOpen(sponsor);
        if (next == nullptr) {
            break;
        }
        chain.insert(0, next->name + (chain.empty() ? "" : " > "));
        current = next;
    }
    return chain;
}

void PrintOpen(const Joiner& joiner,
               const OpenOptions& options,
               Microseconds until,
               Context& context) {
    const auto runningFor = [&](const Activity& activity) {
        return static_cast<double>(until - activity.begin) / 1e6;
    };
    std::vector<const Activity*> open = joiner.Open();
    std::erase_if(open, [&](const Activity* it) { return runningFor(*it) < options.stuck; });
    std::stable_sort(
        open.begin(), open.end(), [](const auto* a, const auto* b) { return a->begin < b->begin; });
    std::size_t nameWidth = 8;
    for (const Activity* const activity : open) {
        nameWidth = std::max(nameWidth, TextWidth(activity->name));
    }
    context.out << FormatTimestamp(until) << "  " << open.size() << " running";
    if (options.stuck > 0) {
        context.out << " for " << FormatDuration(options.stuck) << " or longer";
    }
    context.out << '\n';
    if (!open.empty()) {
        context.out << context.terminal.Paint(
                           FitRight("for", 11) + "  " + FitLeft("activity", nameWidth) + "  " +
                               FitLeft("process:thread", 15) + "  " + FitLeft("user", 10) + "  " +
                               FitLeft("id", 36) + "  within",
                           Colour::Bold)
                    << '\n';
    }
    for (const Activity* const activity : open) {
        const std::string thread =
            std::to_string(activity->process) + ":" + std::to_string(activity->beginThread);
        context.out << FitRight(FormatDuration(runningFor(*activity)), 11) << "  "
                    << FitLeft(OnOneLine(activity->name), nameWidth) << "  " << FitLeft(thread, 15)
                    << "  " << FitLeft(OnOneLine(activity->user), 10) << "  "
                    << FitLeft(OnOneLine(activity->id), 36) << "  "
                    << OnOneLine(ChainOf(joiner, *activity)) << '\n';
    }
}

int Follow(const OpenOptions& options, Context& context) {
    Problems problems(context.err);
    Joiner joiner(problems, [](Activity&&) {});
    const auto take = [&](const LogLine& line, const Place& place) { joiner.Take(line, place); };
    const std::vector<std::string> paths =
        FilesToRead(options.input.files, options.input.addsRotated);
    // Full files are only read; those that were named are followed.
    std::vector<std::string> full;
    LineParser parser;
    std::list<FollowedFile> followed;
    for (const std::string& path : paths) {
        const auto& named = options.input.files;
        if (std::find(named.begin(), named.end(), path) != named.end()) {
            followed.emplace_back(path, parser, problems);
        } else {
            full.push_back(path);
        }
    }
    Progress noProgress(context.err, false, 0);
    LogScanner(full, problems, noProgress).Scan({}, take);
    for (std::size_t update = 0; options.updates == 0 || update < options.updates; ++update) {
        if (update != 0) {
            std::this_thread::sleep_for(options.interval);
        }
        for (FollowedFile& file : followed) {
            file.Poll(take);
        }
        if (context.terminal.isInteractive) {
            context.out << "\x1B[H\x1B[2J";
        }
        PrintOpen(joiner, options, Now(), context);
        if (!context.out.flush()) {
            break;  // nobody reads it any more
        }
    }
    return exitSuccess;
}

}  // namespace

int RunOpen(const OpenOptions& options, Context& context) {
    if (options.isFollowing) {
        return Follow(options, context);
    }
    Input input(options.input, context);
    Joiner joiner(input.Findings(), [](Activity&&) {});
    Microseconds last = 0;
    input.Scanner().Scan({}, [&](const LogLine& line, const Place& place) {
        last = std::max(last, line.time);
        joiner.Take(line, place);
    });
    PrintOpen(joiner, options, options.isNow ? Now() : last, context);
    input.Finish();
    return exitSuccess;
}

}  // namespace tarnview
