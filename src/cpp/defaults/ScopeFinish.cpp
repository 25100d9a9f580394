#include "cvlmetrics/Scope.h"

namespace Metrics {

// The scope ends in any case: what cannot be said is lost.
void Scope::Finish(std::initializer_list<Statement> statements) noexcept {
    if (!m_open) {
        return;
    }
    for (const Statement& statement : statements) {
        try {
            if (statement.type == MetricsEventType::NameValue) {
                EmitImpl(statement.type, statement.name.ToValue(), statement.value.ToValue());
            } else {
                MultiEmitImpl(statement.type, statement.name.ToValue(), statement.pairs.ToList());
            }
        } catch (...) {
            continue;
        }
    }
    Close();
    m_open = false;
    m_id = 0;
}

}  // namespace Metrics
