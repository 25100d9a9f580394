// The model's figures, log events and dumps.
#include "Model.h"
#include "Names.h"

#include "cvlcoreplatform/TLogEvent.h"

#include <algorithm>

namespace model {
namespace {

constexpr int32 infoSeverity = 2;
constexpr int32 allOfMemory = 2;

// A text field: "-" when the attribute is missing.
std::u16string TextField(const Attributes& attributes, std::u16string_view name) {
    const auto found = attributes.find(std::u16string(name));
    if (found == attributes.end()) {
        return u"-";
    }
    if (!found->second.IsText()) {
        throw LogicError("src/cpp/main/ActivityLogEventProducer",
                         110,
                         "Unexpected MetricsValue type",
                         0x710908B6);
    }
    return found->second.text;
}

Node Bytes(int64 value) {
    return Node::Real(static_cast<double>(value));
}

std::u16string LocalTime(int64 microseconds) {
    const TLog::EventTimePoint time{TLog::EventTimePoint::duration(microseconds * 10)};
    return std::u16string(TLog::EventTimestamp(time).GetFormattedLocalValue().View());
}

Node LogsOf(const ScopeState& state) {
    Node logs = Node::Array();
    for (const Supplement& supplement : state.supplements) {
        Node log = Node::Object();
        for (const auto& [name, value] : supplement.pairs) {
            log.Set(TextOf(name), LiteralOf(value, UnknownKind::IsZero));
        }
        log.Set(names::beginAttr, Node::Text(LocalTime(supplement.microseconds)));
        logs.items.push_back(log);
    }
    return logs;
}

}  // namespace

void Model::AddFigures(ScopeState& state, const Pairs& pairs, DumpType type) {
    for (const auto& [nameValue, value] : pairs) {
        if (!nameValue.IsText()) {
            Raised raised = LogicError("src/cpp/main/",
                                       0,
                                       "nameType == Metrics::MetricsValue::MV_Utf16String || "
                                       "nameType == Metrics::MetricsValue::MV_Utf8String",
                                       0);
            raised.line.reset();
            raised.code.reset();
            throw raised;
        }
        const std::u16string name = TextOf(nameValue);
        const int64 amount = IntegerOf(value);
        if (name == names::allocatedInclusiveAttr) {
            AddMeasured(state, folding::AllocatedBytes, amount);
        } else if (name == names::allocatedCountInclusiveAttr) {
            AddMeasured(state, folding::AllocationCount, amount);
        } else if (name == names::allocatedPeakAttr) {
            state.allocatedPeak = amount;
        } else if (name == names::deallocatedInclusiveAttr) {
            AddMeasured(state, folding::ReleasedBytes, amount);
        } else if (name == names::deallocatedCountInclusiveAttr) {
            AddMeasured(state, folding::ReleaseCount, amount);
        } else if (name == names::cpuTimeUserInclusiveAttr) {
            AddMeasured(state, folding::ProgramTime, amount);
        } else if (name == names::cpuTimeKernelInclusiveAttr) {
            AddMeasured(state, folding::KernelTime, amount);
        }
    }
    if (m_options.shouldLogResourceTracking) {
        Dump(state,
             type == DumpType::Memory ? u"Added memory from ActivityScope"
                                      : u"Added cpu from ActivityScope",
             type);
    }
}

void Model::AddEndFigures(ScopeState& state, const TimeInfo& end) {
    SetElapsed(state, static_cast<uint64>(end.time) - static_cast<uint64>(state.openTime.time));
    if (ScopeState* parent = FindScope(FindOpenSponsor(state, true))) {
        Fold(state, *parent);
        PassResult(state, *parent);
    }
    SetExclusiveTime(state);
}

void Model::Fold(const ScopeState& child, ScopeState& parent) {
    if (child.scopeId == parent.scopeId) {
        return;
    }
    folding::Fold(child, parent);
    if (m_options.shouldLogResourceTracking) {
        const std::u16string from = child.name + u" (" + TextOf(child.activityId) + u") at tid " +
                                    LowerHexadecimal(child.threadId);
        Dump(parent, u"Added memory from " + from, DumpType::Memory);
        Dump(parent, u"Added cpu from " + from, DumpType::Cpu);
    }
}

void Model::PassResult(const ScopeState& child, ScopeState& parent) {
    if (child.result == names::earlyTerminationAttr) {
        ++parent.sponseeEarlyTerminations;
    } else if (child.result != names::resultOk) {
        ++parent.sponseeErrors;
    }
    const bool anyFailure = parent.sponseeErrors > 0 || parent.sponseeEarlyTerminations > 0;
    if (parent.name == names::requestScopeName && anyFailure) {
        parent.result = parent.sponseeErrors > 0 ? names::errorAttr : names::earlyTerminationAttr;
        parent.resultPairs.emplace_back(names::messageAttr, u"detected in one or more sponsees");
    }
}

Node DumpOf(const ScopeState& state, const std::u16string& reason, DumpType type) {
    const bool isFull = type == DumpType::Full;
    const bool hasMemory = isFull || type == DumpType::Memory;
    const bool hasCpuTime = hasMemory || type == DumpType::Cpu;
    const auto& figures = state.figures;
    Node body = Node::Object();
    // The first value of a name stays.
    const auto put = [&body](std::u16string_view name, const Node& value) {
        if (!body.Find(name)) {
            body.Set(name, value);
        }
    };
    put(u"dump-reason", Node::Text(reason));
    put(u"scopeId", Node::Integer(static_cast<int64>(state.scopeId)));
    put(u"name", Node::Text(state.name));
    put(u"uuid", Node::Text(TextOf(state.activityId)));
    put(u"tid", Node::Text(LowerHexadecimal(state.threadId)));
    if (isFull) {
        put(u"contextId", Node::Integer(static_cast<int64>(state.contextId)));
        Node attributes = Node::Object();
        for (const auto& [name, value] : state.attributes) {
            const bool isHidden = name == u"query" || name == u"query-trunc";
            attributes.Set(name, Node::Text(isHidden ? u"Intentionally Omitted" : TextOf(value)));
        }
        put(u"scopeAttributes", attributes);
        put(u"root", Node::Text(TextOf(state.requestActivityId)));
        Node sponsors = Node::Object();
        for (std::size_t i = 0; i < state.sponsorChain.size(); ++i) {
            sponsors.Set(UnsignedDecimal(i),
                         Node::Integer(static_cast<int64>(state.sponsorChain[i])));
        }
        put(u"sponsors", sponsors);
        put(u"sDepth", Node::Integer(state.serviceDepth));
        put(u"traceDepth", Node::Integer(state.traceDepth));
        Node start = Node::Object();
        start.Set(u"time", Node::Integer(state.openTime.time));
        start.Set(u"seconds", Node::Integer(static_cast<int64>(state.openTime.wallSeconds)));
        start.Set(u"microseconds", Node::Integer(state.openTime.wallMicros));
        put(u"startTimeInfo", start);
        put(u"elapsed", Node::Real(state.elapsed));
        put(u"exclusive", Node::Real(state.exclusiveTime));
        put(u"rk", Node::Text(state.result));
        for (const auto& [name, text] : state.resultPairs) {
            put(name, Node::Text(text));
        }
    }
    if (hasMemory) {
        Node memory = Node::Object();
        memory.Set(u"ae", Node::Integer(figures[folding::AllocatedBytes].exclusive));
        memory.Set(u"ane", Node::Integer(figures[folding::AllocationCount].exclusive));
        memory.Set(u"aiot", Node::Integer(figures[folding::AllocatedBytes].otherThreads));
        memory.Set(u"aniot", Node::Integer(figures[folding::AllocationCount].otherThreads));
        memory.Set(u"aist", Node::Integer(figures[folding::AllocatedBytes].sameThread));
        memory.Set(u"anist", Node::Integer(figures[folding::AllocationCount].sameThread));
        memory.Set(u"apeak", Node::Integer(state.allocatedPeak));
        memory.Set(u"de", Node::Integer(figures[folding::ReleasedBytes].exclusive));
        memory.Set(u"dne", Node::Integer(figures[folding::ReleaseCount].exclusive));
        memory.Set(u"diot", Node::Integer(figures[folding::ReleasedBytes].otherThreads));
        memory.Set(u"dniot", Node::Integer(figures[folding::ReleaseCount].otherThreads));
        memory.Set(u"dist", Node::Integer(figures[folding::ReleasedBytes].sameThread));
        memory.Set(u"dnist", Node::Integer(figures[folding::ReleaseCount].sameThread));
        put(u"memory", memory);
        put(u"transparent", Node::Boolean(state.transparent));
    }
    if (hasCpuTime) {
        Node cpuTime = Node::Object();
        cpuTime.Set(u"ue", Node::Integer(figures[folding::ProgramTime].exclusive));
        cpuTime.Set(u"uist", Node::Integer(figures[folding::ProgramTime].sameThread));
        cpuTime.Set(u"uidt", Node::Integer(figures[folding::ProgramTime].otherThreads));
        cpuTime.Set(u"ke", Node::Integer(figures[folding::KernelTime].exclusive));
        cpuTime.Set(u"kist", Node::Integer(figures[folding::KernelTime].sameThread));
        cpuTime.Set(u"kidt", Node::Integer(figures[folding::KernelTime].otherThreads));
        put(u"cpuTime", cpuTime);
    }
    return body;
}

void Model::Dump(const ScopeState& state, const std::u16string& reason, DumpType type) {
    if (infoSeverity < m_options.severityThreshold) {
        return;
    }
    Entry entry;
    entry.kind = Entry::Kind::DiagnosticEvent;
    entry.severity = infoSeverity;
    entry.text = u"scope-state";
    entry.body = DumpOf(state, reason, type);
    m_journal.push_back(entry);
}

LogEvent Model::BuildEvent(ScopeState& state, Phase phase, const TimeInfo& time) {
    const bool foreground = m_options.isForegroundThreadContextEnabled;
    const bool atTop = state.traceDepth == 0;
    const bool isEnd = phase == Phase::End;
    const ContextInfo* context = FindContext(state.contextId);
    const Attributes none;
    const Attributes& attributes = context && context->request ? *context->request : none;

    // The sponsor.
    std::u16string sponsorText;
    Id sponsorActivityId{};
    if (const ScopeState* sponsor =
            FindScope(FindOpenSponsor(state, m_options.shouldLogTransparent))) {
        if (foreground) {
            sponsorText = sponsor->ownText;
            state.requestText = std::u16string(sponsor->requestText);
        } else {
            sponsorActivityId = sponsor->activityId;
        }
    } else if (foreground) {
        sponsorText = state.rootText;
    } else {
        sponsorActivityId = state.requestActivityId;
    }

    LogEvent event;
    event.name = (isEnd ? u"end-" : u"begin-") + state.name;
    event.environment = Node::Object();
    event.activity = Node::Object();
    event.attributes = Node::Object();
    event.body = Node::Object();

    if (atTop) {
        event.activity.Set(names::requestDescription,
                           Node::Text(TextField(attributes, names::requestDescription)));
    }
    if (atTop && isEnd) {
        if (!m_options.serverEnvironment.empty()) {
            event.environment.Set(names::environmentAttr, Node::Text(m_options.serverEnvironment));
        }
        event.environment.Set(names::hostAttr, Node::Text(m_process.hostName));
    }

    // Identity.
    if (!foreground) {
        event.activity.Set(names::idAttr, Node::Text(TextOf(state.activityId)));
        if (sponsorActivityId != state.activityId) {
            event.activity.Set(names::sponsorAttr, Node::Text(TextOf(sponsorActivityId)));
        }
        if (state.requestActivityId != state.activityId) {
            event.activity.Set(names::rootAttr, Node::Text(TextOf(state.requestActivityId)));
        }
    } else if (state.traceDepth <= 0) {
        // No sender counts below zero; who does is at the top, and describes no request.
        event.activity.Set(names::idAttr, Node::Text(state.rootText));
    } else {
        event.activity.Set(names::idAttr, Node::Text(state.ownText));
        event.activity.Set(names::rootAttr, Node::Text(state.rootText));
        event.activity.Set(names::sponsorAttr,
                           Node::Text(state.traceDepth == 1 ? state.rootText : sponsorText));
    }
    event.activity.Set(names::nameAttr, Node::Text(state.name));
    event.activity.Set(names::depthAttr, Node::Integer(state.traceDepth));
    event.activity.Set(names::phaseAttr, Node::Text(isEnd ? names::endPhase : names::beginPhase));

    // Request context attributes.
    if (context && context->layers) {
        for (const Attributes& layer : *context->layers) {
            for (const auto& [name, value] : layer) {
                event.attributes.Set(name, LiteralOf(value, UnknownKind::IsAnError));
            }
        }
    }
    for (const std::u16string_view name : {names::workbookAttr, names::viewAttr}) {
        event.attributes.Set(name, Node::Text(TextField(attributes, name)));
    }

    if (isEnd) {
        event.activity.Set(names::elapsedAttr, Node::Real(state.elapsed));
        event.activity.Set(names::exclusiveTimeAttr, Node::Real(state.exclusiveTime));
        event.activity.Set(names::resultKeyAttr, Node::Text(state.result));
        Node results = Node::Object();
        for (const auto& [name, text] : state.resultPairs) {
            results.Set(name, Node::Text(text));
        }
        event.activity.Set(names::resultValueAttr, results);
        if (state.sponseeErrors > 0) {
            event.activity.Set(names::resultCountSponseeErrors, Node::Integer(state.sponseeErrors));
        }
        if (state.sponseeEarlyTerminations > 0) {
            event.activity.Set(names::resultCountSponseeEarlyTerms,
                               Node::Integer(state.sponseeEarlyTerminations));
        }
        if (m_options.isTarnPlatforms) {
            event.activity.Set(names::resourceSubGroupName, BuildResources(state));
        }
    }

    // Scope attributes and log supplements.
    for (const auto& [name, value] : state.attributes) {
        event.body.Set(name, LiteralOf(value, UnknownKind::IsZero));
    }
    if (foreground) {
        event.body.Set(names::serviceDepthAttr, Node::Integer(state.serviceDepth));
    }
    if (isEnd && !state.supplements.empty()) {
        event.body.Set(names::logSupplementsAttr, LogsOf(state));
    }

    // Event information.
    event.time = time.Microseconds() * 10;
    const auto pid = attributes.find(std::u16string(names::pidAttr));
    event.processId =
        pid != attributes.end() ? static_cast<uint32>(IntegerOf(pid->second)) : m_process.processId;
    event.threadId = state.threadId;
    event.session = TextField(attributes, names::sidAttr);
    event.request = state.requestText;
    if (event.request == u"-") {
        event.request = TextField(attributes, names::ridAttr);
    }
    event.requestIsGenerated = event.request == u"-";
    event.user = TextField(attributes, names::userAttr);
    event.site =
        m_options.isServer ? TextField(attributes, names::siteAttr) : m_options.defaultSiteName;
    return event;
}

Node Model::BuildResources(const ScopeState& state) const {
    const int32 mode = m_options.isUnitTest ? m_options.memoryModeOverride : m_process.memoryMode;
    const bool cpu = m_options.isUnitTest || m_process.cpuTrackingEnabled;
    const auto& figures = state.figures;

    Node allocated = Node::Object();
    allocated.Set(names::allocatedExclusiveAttr, Bytes(figures[folding::AllocatedBytes].exclusive));
    allocated.Set(names::allocatedInclusiveAttr,
                  Bytes(figures[folding::AllocatedBytes].Inclusive()));
    allocated.Set(names::allocatedCountExclusiveAttr,
                  Node::Integer(figures[folding::AllocationCount].exclusive));
    allocated.Set(names::allocatedCountInclusiveAttr,
                  Node::Integer(figures[folding::AllocationCount].Inclusive()));
    if (mode == allOfMemory) {
        allocated.Set(names::allocatedPeakAttr, Bytes(state.allocatedPeak));
    }
    Node resources = Node::Object();
    resources.Set(names::allocSubGroupName, allocated);

    if (mode == allOfMemory) {
        Node freed = Node::Object();
        freed.Set(names::deallocatedExclusiveAttr,
                  Bytes(figures[folding::ReleasedBytes].exclusive));
        freed.Set(names::deallocatedInclusiveAttr,
                  Bytes(figures[folding::ReleasedBytes].Inclusive()));
        freed.Set(names::deallocatedCountExclusiveAttr,
                  Node::Integer(figures[folding::ReleaseCount].exclusive));
        freed.Set(names::deallocatedCountInclusiveAttr,
                  Node::Integer(figures[folding::ReleaseCount].Inclusive()));
        resources.Set(names::freeSubGroupName, freed);
    }
    if (cpu) {
        Node kernel = Node::Object();
        kernel.Set(names::cpuTimeKernelInclusiveAttr,
                   Node::Integer(figures[folding::KernelTime].Inclusive()));
        kernel.Set(names::cpuTimeKernelExclusiveAttr,
                   Node::Integer(figures[folding::KernelTime].exclusive));
        resources.Set(names::kernelCpuSubGroupName, kernel);
        Node user = Node::Object();
        user.Set(names::cpuTimeUserInclusiveAttr,
                 Node::Integer(figures[folding::ProgramTime].Inclusive()));
        user.Set(names::cpuTimeUserExclusiveAttr,
                 Node::Integer(figures[folding::ProgramTime].exclusive));
        resources.Set(names::userCpuSubGroupName, user);
        resources.Set(names::numberOfThreads,
                      Node::Integer(static_cast<int64>(state.threadIds.size())));
    }
    return resources;
}

}  // namespace model
