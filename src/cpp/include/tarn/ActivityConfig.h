#pragma once

#include "tarn/ActivitySchema.h"
#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"

/// Which event of which scope: the phase, the scope's name, and what follows from the phase. A
/// value; it refers to schemas and words that live as long as the process.
class TARN_EXPORT ActivityConfig {
public:
    ActivityConfig(ActivityPhase phase, const TString& scopeName);

    ActivityPhase GetPhase() const noexcept { return m_phase; }

    TString GetScopeName() const { return m_scopeName; }

    /// The event's name: "begin-" or "end-" and the scope's name.
    TString GetUniqueActivityName() const;

    /// "begin", "end" or "-"; always the same object for a phase.
    const TString& PhaseToString() const noexcept { return *m_phaseWord; }

    const ActivitySchema& GetSchema() const noexcept { return *m_schema; }

    static const ActivitySchema& s_defaultBeginSchema;
    static const ActivitySchema& s_defaultEndSchema;
    static const ActivitySchema& s_emptyActivitySchema;

private:
    ActivityPhase m_phase;
    TString m_scopeName;
    const TString* m_phaseWord;
    const ActivitySchema* m_schema;
};
