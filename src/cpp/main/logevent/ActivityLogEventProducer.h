#pragma once

#include "ActivityEventInput.h"

#include "tarn/ActivityConfig.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlcoreplatform/TString.h"

namespace tarn {

/// Builds one begin or end event. Which groups of fields it holds depends on the phase and on
/// whether the scope is at the top of its trace.
class ActivityLogEventProducer {
public:
    ActivityLogEventProducer(ActivityPhase phase, const TString& scopeName, bool describesRequest);

    /// `eventName` is what the phase and the scope's name make.
    ActivityLogEventProducer(ActivityPhase phase,
                             const TString& scopeName,
                             bool describesRequest,
                             TString eventName);

    /// Raises `LogicException` when an attribute that must be text is none.
    TLog::Event Produce(const ActivityEventInput& input) const;

private:
    void AddRequestDescription(TLog::EventBuilder& event, const ActivityEventInput& input) const;
    void AddHostAndEnvironment(TLog::EventBuilder& event) const;
    void AddIdentity(TLog::EventBuilder& event, const ActivityEventInput& input) const;
    void AddRequestContextAttributes(TLog::EventBuilder& event,
                                     const ActivityEventInput& input) const;
    void AddOutcome(TLog::EventBuilder& event, const ActivityEventInput& input) const;
    void AddScopeAttributes(TLog::EventBuilder& event, const ActivityEventInput& input) const;
    void AddLogSupplements(TLog::EventBuilder& event, const ActivityEventInput& input) const;

    ActivityConfig m_config;
    bool m_hasRequestDescription;
    bool m_hasHostAndEnvironment;
    bool m_hasIdentity = true;
    bool m_hasLogSupplements;
    bool m_hasOutcome;
    bool m_hasScopeAttributes;
    bool m_hasRequestContextAttributes;
    TString m_eventName;
};

}  // namespace tarn
