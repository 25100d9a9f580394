#pragma once

#include "model/ActivityForest.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnview {

/// The ids of OpenTelemetry, hexadecimal digits in small letters: 32 for the tree, those of its
/// root's id; 16 for the activity, the last ones of its id. An id of another form is hashed, and so
/// is one that another activity of the tree has already: ids repeat where a process is forked, or a
/// context adopted. Used by one thread.
class SpanIds {
public:
    /// `forest` must live as long.
    explicit SpanIds(const ActivityForest& forest);

    std::string TraceIdOf(ActivityForest::Index index) const;
    std::string SpanIdOf(ActivityForest::Index index) const;

private:
    const ActivityForest& m_forest;
    std::vector<std::uint64_t> m_ids;
};

}  // namespace tarnview
