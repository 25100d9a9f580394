#include "send/LossReport.h"

namespace tarn::otlp {

std::string LossReport::Take(Time now, bool isLast) {
    constexpr std::chrono::minutes pause{1};
    if (!m_isNew || (m_hasTold && !isLast && now < m_lastTime + pause)) {
        return {};
    }
    std::string sentence = "OTLP: ";
    if (m_spans == 0) {
        sentence += m_reason;
    } else {
        sentence += std::to_string(m_spans) + (m_spans == 1 ? " span is" : " spans are") +
                    " lost, the last for this reason: " + m_reason;
    }
    m_spans = 0;
    m_isNew = false;
    m_hasTold = true;
    m_lastTime = now;
    return sentence;
}

}  // namespace tarn::otlp
