#include "tarn/ScopeWithVisualId.h"

#include "cvlmetrics/MetricsManager.h"

namespace tarn {
namespace {

// With their apostrophes: these keys are not the attribute tokens of similar texts.
constexpr const char* dashboardKey = "'db'";
constexpr const char* worksheetKey = "'ws'";

void Emit(const Metrics::Scope& scope, const char* key, const TString& value) {
    if (scope.IsOpen()) {
        scope.EmitImpl(Metrics::MetricsEventType::NameValue,
                       Metrics::MetricsValue(key),
                       Metrics::MetricsValue(value));
    }
}

}  // namespace

ScopeWithVisualId::ScopeWithVisualId(const char* name,
                                     uint64 flags,
                                     const TString& worksheet,
                                     const TString& dashboard) {
    if (!Metrics::TestBits(flags)) {
        return;
    }
    m_scope = std::make_unique<Metrics::Scope>(flags);
    if (Metrics::TestBitsAndContext(flags)) {
        m_scope->OpenImpl(Metrics::MetricsValue(name));
    }
    if (!dashboard.IsEmpty() && dashboard != worksheet) {
        Emit(*m_scope, dashboardKey, dashboard);
    }
    Emit(*m_scope, worksheetKey, worksheet);
}

ScopeWithVisualId::~ScopeWithVisualId() = default;

}  // namespace tarn
