#pragma once

#include "MonitorTest.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlsys/IntegerTypes.h"

#include <string>
#include <vector>

namespace tarn::test {

/// Scopes of each kind, in the root context and in others.
class MetricsMonitorScopeTest : public MonitorTest {
protected:
    void OpenTransparent(uint64 id, const std::string& name) {
        Send(EventBuilder::OpenScope(id, name).In(rootContext).Transparent());
    }

    void OpenHosts(uint64 id, const std::string& name) {
        Send(EventBuilder::OpenScope(id, name).In(rootContext).FromHost());
    }

    void CloseHosts(uint64 id, const std::string& name) {
        Send(EventBuilder::CloseScope(id, name).In(rootContext).FromHost());
    }

    std::vector<std::string> MessagesAt(TLog::Severity severity) {
        std::vector<std::string> texts;
        for (const auto& [messageSeverity, text] : Log().Messages()) {
            if (messageSeverity == severity) {
                texts.push_back(text);
            }
        }
        return texts;
    }
};

}  // namespace tarn::test
