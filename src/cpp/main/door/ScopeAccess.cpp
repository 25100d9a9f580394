#include "ScopeAccess.h"

#include "PairBuffer.h"

#include <utility>

namespace tarn {

void ScopeAccess::Add(ActivityScope& scope, const AttributePairs& attributes) {
    if (!scope.m_off && scope.m_scope.IsOpen()) {
        scope.AddToScope(PairBuffer(attributes).Span());
    }
}

void ScopeAccess::Log(ActivityScope& scope, const AttributePairs& attributes) {
    if (!scope.m_off && scope.m_scope.IsOpen()) {
        scope.AddLogToScope(PairBuffer(attributes).Span());
    }
}

void ScopeAccess::Fail(ActivityScope& scope, Metrics::NameValueList&& result) {
    if (!scope.m_off) {
        scope.m_status = ActivityScope::Status::Failed;
        scope.AddResultToScope(std::move(result));
    }
}

}  // namespace tarn
