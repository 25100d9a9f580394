#include "commands/Following.h"

#include "read/FollowedFile.h"
#include "read/InputFiles.h"

#include <algorithm>
#include <list>
#include <ostream>
#include <thread>

namespace tarnview {

void Follow(const InputOptions& input,
            const FollowOptions& options,
            const ParserOptions& parsing,
            bool isScreen,
            Problems& problems,
            Context& context,
            const LogScanner::OnLine& onLine,
            const std::function<void()>& onUpdate) {
    if (!input.from.empty() ||
        std::find(input.files.begin(), input.files.end(), standardInput) != input.files.end()) {
        throw CommandLineError("--follow needs log files");
    }
    const std::vector<std::string> paths = FilesToRead(input.files, input.addsRotated);
    // Full files are only read; those that were named are followed.
    std::vector<std::string> full;
    const Hosts hosts(paths, input.hosts);
    std::list<LineParser> parsers;
    std::list<FollowedFile> followed;
    for (const std::string& path : paths) {
        const bool isNamed =
            std::find(input.files.begin(), input.files.end(), path) != input.files.end();
        if (isNamed && !IsCompressed(path)) {
            ParserOptions own = parsing;
            own.host = hosts.Of(path);
            followed.emplace_back(path, parsers.emplace_back(own), problems);
        } else {
            full.push_back(path);
        }
    }
    LogScanner scanner(full, problems);
    scanner.UseHosts(hosts);
    scanner.Scan(parsing, onLine);
    context.times.base = scanner.FirstTime();
    for (std::size_t update = 0; options.updates == 0 || update < options.updates; ++update) {
        if (update != 0) {
            std::this_thread::sleep_for(options.interval);
        }
        for (FollowedFile& file : followed) {
            file.Poll([&](const LogLine& line, const Place& place) {
                if (context.times.base == 0) {
                    context.times.base = line.time;
                }
                onLine(line, place);
            });
        }
        if (isScreen && context.terminal.isInteractive) {
            context.out << "\x1B[H\x1B[2J";
        }
        onUpdate();
        if (!context.out.flush()) {
            break;  // nobody reads it any more
        }
    }
}

}  // namespace tarnview
