#pragma once

#include "model/ActivityForest.h"

#include <iosfwd>

namespace tarnview {

/// A page that stands for itself: timeline, flame chart, table by name, failures. It loads nothing,
/// and what the log says is in it as data only, never as markup.
void WriteReportPage(const ActivityForest& forest, std::ostream& out);

}  // namespace tarnview
