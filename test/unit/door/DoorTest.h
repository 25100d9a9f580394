#pragma once

#include "Matchers.h"
#include "MonitoredHost.h"
#include "ScopeTree.h"
#include "TarnTest.h"

#include "tarn/OptTarn.h"

#include <cstddef>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {

/// Base of the tests of the front door: a host that is monitored, with ids.
class DoorTest : public TarnTest {
protected:
    DoorTest() {
        OptTarn::SetIsForegroundThreadContextEnabled(true);
        m_host.emplace();
    }

    const CapturedEvents& Events() const { return m_host->Events(); }

    MetricsMonitor& Monitor() const { return m_host->Monitor(); }

    std::string Tree() const { return DrawScopeTree(Events()); }

    std::size_t CountOf(const EventMatcher& matcher) const {
        std::size_t count = 0;
        for (const TLog::Event& event : Events()) {
            count += testing::Value(event, matcher) ? 1U : 0U;
        }
        return count;
    }

    /// What was warned of.
    std::vector<std::string> Warnings() {
        std::vector<std::string> warnings;
        for (const auto& [severity, text] : Log().Messages()) {
            if (severity == TLog::Warn) {
                warnings.push_back(text);
            }
        }
        return warnings;
    }

    void StartTracing() { m_host.emplace(); }

    void StopTracing() {
        m_host.reset();
        OptTarn::SetIsTarnEnabled(false);
    }

private:
    std::optional<MonitoredHost> m_host;
};

}  // namespace tarn::test
