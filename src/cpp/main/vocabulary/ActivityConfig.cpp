#include "tarn/ActivityConfig.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"

#include "tarn/TarnMetricsUtils.h"

namespace {

// The schemas and words are built on first use, which the load of the library forces, and never
// destroyed: events may be built in static destructors.

const ActivitySchema& BeginSchema() {
    static const tarn::NeverDestroyed<ActivitySchema> schema(
        TString(u"begin-default"), TString(u"begin-"), ActivityPhase::Begin);
    return schema.Get();
}

const ActivitySchema& EndSchema() {
    static const tarn::NeverDestroyed<ActivitySchema> schema(
        TString(u"end-default"), TString(u"end-"), ActivityPhase::End);
    return schema.Get();
}

const ActivitySchema& EmptySchema() {
    static const tarn::NeverDestroyed<ActivitySchema> schema(
        TString(u"empty"), TString(), ActivityPhase::None);
    return schema.Get();
}

const ActivitySchema& SchemaOf(ActivityPhase phase) {
    switch (phase) {
        case ActivityPhase::Begin:
            return BeginSchema();
        case ActivityPhase::End:
            return EndSchema();
        case ActivityPhase::None:
            break;
    }
    return EmptySchema();
}

const TString& WordOf(ActivityPhase phase) {
    static const tarn::NeverDestroyed<TString> noWord(
        TarnMetricsUtils::DefaultStringAttributeValue());
    switch (phase) {
        case ActivityPhase::Begin:
            return tarn::Tokens().beginPhase;
        case ActivityPhase::End:
            return tarn::Tokens().endPhase;
        case ActivityPhase::None:
            break;
    }
    return noWord.Get();
}

}  // namespace

const ActivitySchema& ActivityConfig::s_defaultBeginSchema = BeginSchema();
const ActivitySchema& ActivityConfig::s_defaultEndSchema = EndSchema();
const ActivitySchema& ActivityConfig::s_emptyActivitySchema = EmptySchema();

ActivitySchema::ActivitySchema(const TString& schemaName,
                               const TString& eventNamePrefix,
                               ActivityPhase eventPhase)
    : name(schemaName),
      prefix(eventNamePrefix),
      phase(eventPhase) {}

ActivityConfig::ActivityConfig(ActivityPhase phase, const TString& scopeName)
    : m_phase(phase),
      m_scopeName(scopeName),
      m_phaseWord(&WordOf(phase)),
      m_schema(&SchemaOf(phase)) {}

TString ActivityConfig::GetUniqueActivityName() const {
    return m_schema->prefix + m_scopeName;
}
