#include "CapturingSink.h"

#include <utility>

namespace tarn::test {

CapturingSink::CapturingSink(std::shared_ptr<CapturedEvents> events)
    : m_events(std::move(events)) {}

CapturingSink::~CapturingSink() = default;

void CapturingSink::Log(const TLog::Event& event) {
    m_events->push_back(event);
}

}  // namespace tarn::test
