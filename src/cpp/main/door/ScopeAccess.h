#pragma once

#include "AttributePairs.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityScope.h"
#include "tarn/Traits.h"

#include "cvlmetrics/MetricsValue.h"

#include <memory>

namespace tarn {

/// What the front door needs of a scope beside what hosts use.
class ScopeAccess {
public:
    /// Constructs a scope that was found to be on. Throws what the constructors of `ActivityScope`
    /// throw.
    static ActivityScope* Construct(void* room,
                                    const char* name,
                                    Traits traits,
                                    const AttributePairs& attributes) {
        return new (room) ActivityScope(name, traits, attributes);
    }

    // These do nothing, and make nothing of the attributes, while nobody listens.

    static void Add(ActivityScope& scope, const AttributePairs& attributes);
    static void Log(ActivityScope& scope, const AttributePairs& attributes);

    /// Failed, with these pairs as the result. The last report counts.
    static void Fail(ActivityScope& scope, Metrics::NameValueList&& result);

    /// Its end is not to be taken for an early termination.
    static void EndRegularly(ActivityScope& scope) noexcept {
        if (scope.m_status == ActivityScope::Status::None) {
            scope.m_status = ActivityScope::Status::Failed;
        }
    }

    static bool IsOff(const ActivityScope& scope) noexcept { return scope.m_off; }

    static const ActivityContext* Context(const ActivityScope& scope) noexcept {
        return scope.m_off ? nullptr : scope.m_activityContext.get();
    }
};

}  // namespace tarn
