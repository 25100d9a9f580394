#pragma once

// The log lines of a program that logs with spdlog, with the activity that they belong to.

#include "tarn/Trace.h"

#include <ctime>
#include <memory>
#include <spdlog/pattern_formatter.h>
#include <string_view>

namespace tarn {

/// A flag for spdlog's patterns: the ids of the current activity and of its root, with a blank
/// between; "-" where nothing is current.
///
///     auto formatter = std::make_unique<spdlog::pattern_formatter>();
///     formatter->add_flag<tarn::SpdlogFlag>('*').set_pattern("%+ [%*]");
///     spdlog::set_formatter(std::move(formatter));
///
/// It speaks of the thread that formats, so an asynchronous logger, which formats on a thread of
/// its own, has no use for it. What is current is what `tarn::Current()` knows.
class SpdlogFlag : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& /*message*/,
                const std::tm& /*time*/,
                spdlog::memory_buf_t& line) override {
        const CurrentWork current = Current();
        const auto append = [&line](std::string_view text) {
            line.append(text.data(), text.data() + text.size());
        };
        if (!current) {
            return append("-");
        }
        append(current.GetActivityId());
        append(" ");
        append(current.GetRootId());
    }

    std::unique_ptr<spdlog::custom_flag_formatter> clone() const override {
        return std::make_unique<SpdlogFlag>();
    }
};

}  // namespace tarn
