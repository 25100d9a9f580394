#include "commands/LoadCommand.h"

#include "engine/BlockSender.h"
#include "engine/EngineTables.h"
#include "engine/Loader.h"
#include "output/Units.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <ostream>
#include <thread>

namespace tarnview {

namespace {

// What comes from a pipe comes once: there is nothing to go on with.
std::string CheckpointFor(const LoadOptions& options) {
    const std::string& first = options.input.files.front();
    if (!options.checkpoint.empty()) {
        return options.checkpoint;
    }
    return first == standardInput ? "" : first + ".loaded";
}

std::optional<std::chrono::milliseconds> TimeoutFor(const LoadOptions& options) {
    constexpr std::chrono::minutes usual{10};
    if (options.timeout) {
        return options.timeout->count() == 0 ? std::nullopt : options.timeout;
    }
    return options.follow.isFollowing ? std::nullopt
                                      : std::optional<std::chrono::milliseconds>(usual);
}

void Summarize(const Loader& loader, const Problems& problems, Context& context) {
    const Loader::Counts& counts = loader.Loaded();
    context.out << "loaded " << counts.activities << " activities, " << counts.messages
                << " messages; rejected " << counts.rejected << " lines, not ended "
                << loader.OpenCount() << '\n';
    if (const std::string summary = problems.Summary(); !summary.empty()) {
        context.err << "tarnview: " << summary << '\n';
    }
}

}  // namespace

int RunLoad(const LoadOptions& options, Context& context) {
    const std::vector<std::string>& files = options.input.files;
    const bool readsStream = std::find(files.begin(), files.end(), standardInput) != files.end();
    if (options.follow.isFollowing && readsStream) {
        throw CommandLineError("--follow needs log files");
    }
    const std::string path = CheckpointFor(options);
    std::optional<CheckpointLock> lock;
    if (!path.empty()) {
        lock.emplace(path);
    }
    Problems problems(context.err);
    EngineClient client(options.to);
    const std::string shown = options.to.Shown();
    BlockSender sender(client,
                       {.isReplicated = !options.cluster.empty(), .timeout = TimeoutFor(options)},
                       [&](const std::string& news) {
                           context.err << "tarnview: " << shown << ": " << OnOneLine(news) << '\n'
                                       << std::flush;
                       });
    Loader loader({files, options.input.addsRotated, path, options.blockLines}, sender, problems);
    sender.Create(StatementsToCreate(options.to.database, options.cluster));
    loader.Resume();
    loader.Poll();
    if (options.follow.isFollowing) {
        for (std::size_t update = 1; options.follow.updates == 0 || update < options.follow.updates;
             ++update) {
            std::this_thread::sleep_for(options.follow.interval);
            loader.Poll();
        }
    }
    Summarize(loader, problems, context);
    return loader.Loaded().rejected != 0 ? exitNegative : exitSuccess;
}

}  // namespace tarnview
