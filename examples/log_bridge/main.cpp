// A program that logs with spdlog: its own lines name the activity that they belong to, so that
// they can be found beside it.
#include "tarn/Session.h"
#include "tarn/SpdlogFlag.h"
#include "tarn/Trace.h"

#include <memory>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <utility>

int main() {
    const tarn::Session session;
    const auto logger = spdlog::stdout_logger_st("program");
    auto formatter = std::make_unique<spdlog::pattern_formatter>();
    formatter->add_flag<tarn::SpdlogFlag>('*').set_pattern("%l [%*] %v");
    logger->set_formatter(std::move(formatter));

    logger->info("starting");
    const tarn::Scope load("load");
    const tarn::Scope parse("parse");
    logger->warn("line {} is empty", 17);
    logger->flush();
}
