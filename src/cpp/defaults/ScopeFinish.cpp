#include "cvlmetrics/Scope.h"

namespace Metrics {

// The scope ends in any case: what cannot be said is lost.
void Scope::Finish(std::initializer_list<FinalEvent> events) noexcept {
    if (!m_open) {
        return;
    }
    for (const FinalEvent& event : events) {
        try {
            if (event.type == MetricsEventType::NameValue) {
                EmitImpl(event.type, event.name.ToValue(), event.value.ToValue());
            } else {
                MultiEmitImpl(event.type, event.name.ToValue(), event.pairs.ToList());
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
