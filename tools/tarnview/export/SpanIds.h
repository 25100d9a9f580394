#pragma once

#include "model/ActivityForest.h"
#include "span/SpanIds.h"

#include <vector>

namespace tarnview {

/// The ids of OpenTelemetry for a whole forest: those that tarn::otlp gives to an activity by
/// itself, but with the parents that the forest has found, and with another one for an activity
/// whose id a former one has already: ids repeat where a process is forked, or a context adopted.
/// Used by one thread.
class SpanIds {
public:
    /// `forest` must live as long.
    explicit SpanIds(const ActivityForest& forest);

    tarn::otlp::SpanIdentity IdentityOf(ActivityForest::Index index) const;

private:
    const ActivityForest& m_forest;
    std::vector<tarn::otlp::SpanId> m_ids;
};

}  // namespace tarnview
