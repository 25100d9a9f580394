#include "commands/SlowestOption.h"

namespace tarnview {

void AddSlowestOption(CLI::App& command, TreeOrder& order, std::size_t& count) {
    command
        .add_option_function<std::size_t>(
            "--slowest",
            [&order, &count](std::size_t wanted) {
                order = TreeOrder::Slowest;
                count = wanted;
            },
            "The N trees in which what fits the filters took longest, without filters the roots")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000).description(""));
}

}  // namespace tarnview
