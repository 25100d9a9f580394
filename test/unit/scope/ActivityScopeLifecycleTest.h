#pragma once

#include "ScopeTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/Traits.h"

namespace tarn::test {

inline constexpr TraceRank rankThatIsOff{1};

inline ThreadActivityRegistry& Registry() {
    return ThreadActivityRegistry::GetInstance();
}

class ActivityScopeLifecycleTest : public ScopeTest {};

}  // namespace tarn::test
