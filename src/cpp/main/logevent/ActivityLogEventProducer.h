#pragma once

#include "ActivityEventInput.h"
#include "EventForms.h"

#include "tarn/ActivitySchema.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"

#include <vector>

namespace tarn {

/// Builds begin and end events. Which fields one has depends on the phase, the options and the
/// scope's state, as the rows of `EventTable.cpp` say. One thread at a time.
class ActivityLogEventProducer {
public:
    /// `eventName` is what the phase and the scope's name make. Raises `LogicException` when an
    /// attribute that must be text is not.
    TLog::Event Produce(ActivityPhase phase, TString eventName, const ActivityEventInput& input);

private:
    EventForms m_forms;
    std::vector<TLog::SlotValue> m_values;  ///< of the event that is built
};

}  // namespace tarn
