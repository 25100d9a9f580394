#pragma once

#include "tarn/ActivityContext.h"
#include "tarn/Traits.h"

#include <memory>

namespace tarn {

/// The context of a new scope: a fresh root without a parent, an equal context when the parent is
/// adopted, else a child of the parent. A transparent child keeps the parent's depths while
/// transparent scopes are not logged, so that the logged depths have no gap.
std::shared_ptr<ActivityContext> DeriveActivityContext(const ActivityContext* parent,
                                                       bool adopt,
                                                       TraceType type);

inline std::shared_ptr<ActivityContext> DeriveActivityContext(
    const ActivityContextInitializer& initializer, TraceType type) {
    return DeriveActivityContext(initializer.parent.get(), initializer.adopt, type);
}

}  // namespace tarn
