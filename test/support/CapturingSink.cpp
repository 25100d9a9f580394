#include "CapturingSink.h"

#include "EventLine.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace tarn::test {

CapturingSink::CapturingSink(std::shared_ptr<CapturedEvents> events)
    : m_events(std::move(events)) {}

CapturingSink::~CapturingSink() = default;

void CapturingSink::Log(const TLog::Event& event) {
    if (const std::string difference = DifferenceOfLine(TLog::Info, event); !difference.empty()) {
        ADD_FAILURE() << difference;
    }
    m_events->push_back(event);
}

}  // namespace tarn::test
