#pragma once

#include "commands/Context.h"
#include "model/Filter.h"
#include "output/Table.h"

namespace tarnview {

/// What commands that answer with a table have in common.
struct Question {
    InputOptions input;
    Filter filter;
    TableFormat format = TableFormat::Text;
};

}  // namespace tarnview
