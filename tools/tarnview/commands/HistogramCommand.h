#pragma once

#include "commands/Context.h"
#include "commands/Question.h"

namespace tarnview {

/// Of what of an activity the distribution is shown.
enum class HistogramFigure { Elapsed, Exclusive, Cpu, Memory };

struct HistogramOptions {
    Question question;
    HistogramFigure figure = HistogramFigure::Elapsed;
};

/// Prints how many activities took how long. Throws `std::system_error` if a file cannot be read.
int RunHistogram(const HistogramOptions& options, Context& context);

}  // namespace tarnview
