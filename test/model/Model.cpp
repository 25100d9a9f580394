#include "Model.h"

#include "Names.h"

#include <algorithm>

namespace model {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsValue;

constexpr int32 traceSeverity = 0;
constexpr int32 infoSeverity = 2;
constexpr int32 warnSeverity = 3;

bool HasBit(const MetricsEvent& event, int bit) {
    return (event.flags >> bit) % 2 == 1;
}

// Depths may come from outside; one more than the largest wraps.
int32 OneDeeper(int32 depth) {
    return static_cast<int32>(static_cast<uint32>(depth) + 1);
}

TimeInfo TimeOf(const MetricsEvent& event) {
    return {event.time, event.wallSeconds, event.wallMicros};
}

bool IsReplaceableRequestDescription(const Value& current, const Value& incoming) {
    const std::u16string text = TextOf(current);
    if (text.empty() || StartsWith(text, u"/sessions/{sessionId}/commands")) {
        return true;
    }
    return StartsWith(text, u"/bootstrapSession") && incoming.type == MetricsValue::MV_Utf8String &&
           StartsWith(PlainTextOf(incoming), u"/bootstrapSession");
}

}  // namespace

std::u16string TextOf(const Id& id) {
    std::u16string text;
    for (std::size_t i = 0; i < id.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += u'-';
        }
        text += u"0123456789ABCDEF"[id[i] / 16];
        text += u"0123456789ABCDEF"[id[i] % 16];
    }
    return text;
}

Id IdAt(uint64 index, bool repeating) {
    const uint64 number = repeating ? index % 3 : index;
    Id id{};
    for (std::size_t i = 0; i < id.size(); ++i) {
        id[i] = static_cast<unsigned char>((number + 1) * (2 * i + 7) * 0x9E3779B1U >> (i % 13));
    }
    // The number itself keeps the ids apart.
    id[14] = static_cast<unsigned char>(number >> 8);
    id[15] = static_cast<unsigned char>(number);
    return id;
}

int64 TimeInfo::Microseconds() const {
    return static_cast<int64>(wallSeconds * 1000000 + wallMicros);
}

Model::Model(const ProcessFacts& process,
             const StreamOptions& options,
             uint64 rootContextId,
             std::vector<uint64> contextIds,
             bool throughDefaultSink,
             bool repeatingIds)
    : m_process(process),
      m_rootContextId(rootContextId),
      m_contextIds(std::move(contextIds)),
      m_throughDefaultSink(throughDefaultSink),
      m_repeatingIds(repeatingIds) {
    SetOptions(options);
}

void Model::SetOptions(const StreamOptions& options) {
    m_options = options;
    m_hasCallbackThrown = false;  // of the new one
    const std::set<std::u16string> targets{std::u16string(names::ridAttr),
                                           std::u16string(names::sidAttr),
                                           std::u16string(names::siteAttr),
                                           std::u16string(names::userAttr),
                                           std::u16string(names::requestDescription),
                                           std::u16string(names::workbookAttr),
                                           std::u16string(names::viewAttr)};
    m_mappings.clear();
    for (const std::u16string& target : targets) {
        m_mappings[target] = target;
    }
    for (const MappingChange& change : options.mappingChanges) {
        if (change.remove) {
            m_mappings.erase(change.name);
        } else if (targets.count(change.target) != 0) {
            m_mappings[change.name] = change.target;
        }
    }
}

Observation Model::Construct() {
    return Observe([this] {
        if (m_options.isTarnEnabled) {
            Message(infoSeverity,
                    u"Opening MetricsMonitor for context " + UnsignedDecimal(m_rootContextId));
            OnCreateContext(m_rootContextId, 0);
        }
    });
}

Observation Model::Destroy() {
    return Observe([this] {
        while (!m_contexts.empty()) {
            SetRequest(m_contexts.begin()->second, nullptr);
            m_contexts.erase(m_contexts.begin());
        }
        m_scopes.clear();
    });
}

Observation Model::Handle(const MetricsEvent& event, bool sinkThrows) {
    m_sinkThrows = sinkThrows;
    return Observe([this, &event] {
        if (!HasBit(event, 53) && event.flags % 16 != 0) {
            return;
        }
        switch (static_cast<uint32>(event.type)) {
            case 2:
                return OnCreateContext(event.id, event.contextId);
            case 3:
                return OnOpenContext(event.id);
            case 4:
                return OnCloseContext(event.id);
            case 5:
                return OnOpenScope(event);
            case 6:
                return OnCloseScope(event);
            case 7:
                return OnNameValue(event);
            case 8:
                return OnAttribute(event);
            case 9:
                return OnNameValuePairs(event);
            case 10:
                return OnAttributePairs(
                    event.contextId, TextOf(Value(event.name)), PairsOf(event.pairs));
            case 11:
                return OnSupplementalPairs(event);
            case 12:
                return OnPostCloseScope(event);
            default:
                return;
        }
    });
}

Observation Model::Observe(const std::function<void()>& call) {
    Observation observation;
    try {
        call();
    } catch (const Raised& raised) {
        observation.raised = raised;
    }
    observation.journal.swap(m_journal);
    observation.counters = m_counters;
    observation.openContexts = m_contexts.size();
    observation.openScopes = m_scopes.size();
    for (const uint64 contextId : m_contextIds) {
        const ContextInfo* context = FindContext(contextId);
        observation.openScopesOfContext.push_back(context ? context->openScopes.size() : 0);
    }
    return observation;
}

void Model::Count(Counter counter) {
    const auto index = static_cast<std::size_t>(counter);
    if (m_options.counterIsAttached[index]) {
        ++m_counters[index];
    }
    if (m_options.counterCallbackIsSet) {
        Entry entry;
        entry.kind = Entry::Kind::CounterCall;
        entry.counterName = m_options.counterNames[index];
        entry.amount = 1;
        entry.counters = m_counters;
        m_journal.push_back(entry);
        if (m_options.counterCallbackThrows && !m_hasCallbackThrown) {
            m_hasCallbackThrown = true;
            Message(warnSeverity,
                    u"The counter callback has thrown an exception, which is ignored. Further ones "
                    u"are not reported.");
        }
    }
}

void Model::Message(int32 severity, std::u16string text) {
    if (severity < m_options.severityThreshold) {
        return;
    }
    Entry entry;
    entry.kind = Entry::Kind::Message;
    entry.severity = severity;
    entry.text = std::move(text);
    m_journal.push_back(entry);
}

void Model::Sink(const LogEvent& event) {
    Entry entry;
    entry.kind = Entry::Kind::ActivityEvent;
    entry.event = event;
    if (m_throughDefaultSink) {
        if (infoSeverity < m_options.severityThreshold) {
            return;
        }
        entry.severity = infoSeverity;
    }
    m_journal.push_back(entry);
    if (m_sinkThrows && !m_throughDefaultSink) {
        Raised raised;
        raised.kind = Raised::Kind::Sink;
        throw raised;
    }
}

// ---- Contexts

void Model::OnCreateContext(uint64 contextId, uint64 parentId) {
    m_contexts[contextId];
    Count(Counter::ContextsCreated);
    m_contexts[contextId].parentId = parentId;
    if (parentId == 0) {
        return;
    }
    m_contexts[parentId];
    const ContextInfo parent = m_contexts[parentId];
    ContextInfo& child = m_contexts[contextId];
    child.baseState = InnermostState(parent);
    if (!parent.openTracingScopes.empty()) {
        child.openTracingScopes.push_back(parent.openTracingScopes.back());
    }
    if (!child.layers) {
        child.layers = parent.layers;
    }
    SetRequest(child, m_contexts[parentId].request);
}

void Model::OnOpenContext(uint64 contextId) {
    ContextInfo* context = FindContext(contextId);
    if (context && !context->isOpen) {
        context->isOpen = true;
        return;
    }
    if (!m_hasWarnedOfOpening) {
        m_hasWarnedOfOpening = true;
        Message(warnSeverity,
                u"Context " + UnsignedDecimal(contextId) +
                    u" was opened although it is open or has ended, or was made before this "
                    u"monitor. What is traced in it may be missing here; so may what is traced in "
                    u"other such contexts. Work that runs several times needs a context for each "
                    u"run (tarn::ActivityHandOver).");
    }
}

void Model::OnCloseContext(uint64 contextId) {
    ContextInfo* context = FindContext(contextId);
    if (!context) {
        return;
    }
    SetRequest(*context, nullptr);
    m_contexts.erase(contextId);
    Count(Counter::ContextsClosed);
}

ContextInfo* Model::FindContext(uint64 contextId) {
    const auto found = m_contexts.find(contextId);
    return found == m_contexts.end() ? nullptr : &found->second;
}

std::shared_ptr<Attributes> Model::NewRequest() {
    Count(Counter::RequestContextsCreated);
    return std::make_shared<Attributes>();
}

// A request ends when the last context that refers to it lets it go.
void Model::SetRequest(ContextInfo& context, std::shared_ptr<Attributes> request) {
    context.request.swap(request);
    if (!request) {
        return;
    }
    for (const auto& [id, other] : m_contexts) {
        if (other.request == request) {
            return;
        }
    }
    Count(Counter::RequestContextsClosed);
}

void Model::AddAttributesToRequest(ContextInfo& context, const Pairs& pairs) {
    if (!context.request) {
        return;
    }
    Attributes& attributes = *context.request;
    for (const auto& [nameValue, value] : pairs) {
        const std::u16string name = TextOf(nameValue);
        if (name == names::requestDescription && attributes.count(name) != 0 &&
            !IsReplaceableRequestDescription(attributes[name], value)) {
            continue;
        }
        attributes[name] = value;
    }
}

// Ids without a record are passed over.
ScopeState Model::InnermostState(const ContextInfo& context) {
    for (auto id = context.openScopes.rbegin(); id != context.openScopes.rend(); ++id) {
        if (const ScopeState* state = FindScope(*id)) {
            return *state;
        }
    }
    return context.baseState;
}

// ---- Scopes

ScopeState* Model::FindScope(uint64 scopeId) {
    const auto found = m_scopes.find(scopeId);
    return found == m_scopes.end() ? nullptr : &found->second;
}

bool Model::IsRequestScope(const MetricsEvent& event) const {
    return !m_options.isForegroundThreadContextEnabled && !HasBit(event, 53) &&
           TextOf(Value(event.name)) == names::requestScopeName;
}

bool Model::IsSilent(const ScopeState& state) const {
    return state.transparent && !m_options.shouldLogTransparent;
}

void Model::OnOpenScope(const MetricsEvent& event) {
    const bool request = IsRequestScope(event);
    const bool tracing = HasBit(event, 53) || request;
    ContextInfo* context = FindContext(event.contextId);
    if (!context || !context->isOpen || !(context->openScopes.empty() || tracing)) {
        return;
    }
    const ScopeState parent = InnermostState(*context);
    Count(Counter::ScopesOpened);
    const bool startsRequest = request || (tracing && context->openTracingScopes.empty());
    if (startsRequest) {
        SetRequest(*context, NewRequest());
    }
    context->openScopes.push_back(event.id);
    m_scopes[event.id] = BuildState(parent, event, *context, request, tracing, startsRequest);

    ScopeState& state = m_scopes[event.id];
    if (!tracing || IsSilent(state)) {
        return;
    }
    try {
        Sink(BuildEvent(state, Phase::Begin, state.openTime));
    } catch (const Raised&) {
        state.attributes.clear();
        throw;
    }
    state.attributes.clear();
}

ScopeState Model::BuildState(const ScopeState& parent,
                             const MetricsEvent& event,
                             ContextInfo& context,
                             bool request,
                             bool tracing,
                             bool startsRequest) {
    ScopeState state;
    state.requestText = parent.requestText;
    state.threadId = parent.threadId;
    state.requestActivityId = parent.requestActivityId;
    state.sponsorChain = parent.sponsorChain;
    state.traceDepth = parent.traceDepth;
    state.serviceDepth = parent.serviceDepth;
    state.scopeId = event.id;
    state.name = TextOf(Value(event.name));
    state.contextId = event.contextId;
    state.tracing = tracing;
    if (!tracing) {
        return state;
    }

    for (const Pair& pair : PairsOf(event.pairs)) {
        if (m_options.isForegroundThreadContextEnabled) {
            RouteOpeningPair(state, pair);
        } else {
            AddAttributeToActivity(state, TextOf(pair.first), pair.second);
        }
    }

    Entry idTaken;
    idTaken.kind = Entry::Kind::IdTaken;
    m_journal.push_back(idTaken);
    state.activityId = IdAt(m_idsTaken++, m_repeatingIds);
    state.transparent = HasBit(event, 51);
    state.measuresNothing = HasBit(event, 54) || request;

    for (const auto& [name, value] : context.ownAttributes) {
        if (TextOf(name) == names::tidAttr) {
            state.threadId = static_cast<uint64>(IntegerOf(value));
            state.threadIds.insert(state.threadId);
        }
    }
    if (!context.pendingAttributes.empty() && context.request) {
        AddAttributesToRequest(context, context.pendingAttributes);
        context.pendingAttributes.clear();
    }

    if (startsRequest) {
        state.requestActivityId = state.activityId;
        state.sponsorChain.push_back(event.id);
        if (!m_options.isForegroundThreadContextEnabled) {
            state.traceDepth = 0;
            state.serviceDepth = 0;
        }
    } else {
        state.sponsorChain.push_back(context.openTracingScopes.back());
        if (!m_options.isForegroundThreadContextEnabled && !IsSilent(state)) {
            state.traceDepth = OneDeeper(state.traceDepth);
            state.serviceDepth = OneDeeper(state.serviceDepth);
        }
    }
    context.openTracingScopes.push_back(event.id);
    state.openTime = TimeOf(event);
    return state;
}

void Model::RouteOpeningPair(ScopeState& state, const Pair& pair) {
    const std::u16string name = TextOf(pair.first);
    const Value& value = pair.second;
    if (name == names::traceDepthAttr) {
        state.traceDepth = static_cast<int32>(IntegerOf(value));
    } else if (name == names::serviceDepthAttr) {
        state.serviceDepth = static_cast<int32>(IntegerOf(value));
    } else if (name == names::foregroundRootAttr) {
        state.rootText = TextOf(value);
    } else if (name == names::activityIdAttr) {
        state.ownText = TextOf(value);
    } else if (name == names::ridAttr) {
        if (TextOf(value) != u"-") {
            state.requestText = TextOf(value);
        }
    } else if (name != names::sponsorActivityIdAttr) {
        AddAttributeToActivity(state, name, value);
    }
}

void Model::OnCloseScope(const MetricsEvent& event) {
    ContextInfo* context = FindContext(event.contextId);
    if (!context || !context->isOpen) {
        return;
    }
    if (!context->openScopes.empty() && context->openScopes.back() == event.id) {
        CloseTopmost(*context, event);
    } else if (const ScopeState* state = FindScope(event.id)) {
        Message(warnSeverity,
                u"MetricsMonitor tried to close open scope " + UnsignedDecimal(event.id) + u", " +
                    state->name + u" out of sync with context's open scopes.");
        m_scopes.erase(event.id);
    }
}

void Model::CloseTopmost(ContextInfo& context, const MetricsEvent& event) {
    Count(Counter::ScopesClosed);
    ScopeState* state = FindScope(event.id);
    // Of an id whose record was dropped before, only the event still says whether it was traced.
    const bool tracing = state ? state->tracing : HasBit(event, 53) || IsRequestScope(event);
    std::optional<Raised> raised;
    if (state && state->tracing) {
        try {
            AddEndFigures(*state, TimeOf(event));
            if (m_options.isForegroundThreadContextEnabled) {
                PassAttributesToParent(*state);
            }
            if (!IsSilent(*state)) {
                Sink(BuildEvent(*state, Phase::End, TimeOf(event)));
            }
        } catch (const Raised& caught) {
            raised = caught;
        }
    }
    m_scopes.erase(event.id);
    context.openScopes.pop_back();
    if (tracing && !context.openTracingScopes.empty()) {
        context.openTracingScopes.pop_back();
    }
    if (raised) {
        throw *raised;
    }
}

void Model::OnPostCloseScope(const MetricsEvent& event) {
    ContextInfo* context = FindContext(event.contextId);
    const bool pops =
        event.value.type == MetricsValue::MV_Int64 && static_cast<uint32>(event.value.integer) == 0;
    if (context && pops && context->layers && !context->layers->empty()) {
        context->layers->pop_back();
    }
}

uint64 Model::FindOpenSponsor(const ScopeState& state, bool anySponsor) {
    const auto id = folding::NearestSponsor(state.sponsorChain, [&](uint64 scopeId) {
        const ScopeState* sponsor = FindScope(scopeId);
        return sponsor && (anySponsor || !sponsor->transparent);
    });
    if (id) {
        return *id;
    }
    if (m_options.isServer) {
        Message(traceSeverity, u"Scope " + TextOf(state.activityId) + u" has no open sponsors.");
    }
    return 0;
}

// ---- Attributes

void Model::AddAttributeToActivity(ScopeState& state, std::u16string name, const Value& value) {
    if (name == names::tidAttr) {
        state.threadId = static_cast<uint64>(IntegerOf(value));
        state.threadIds.insert(state.threadId);
        return;
    }
    if (name == names::cmdNameAttr) {
        name = names::nameAttr;
    }
    const bool isQuery = name == u"query" || name == u"abstract-query";
    if (!isQuery || !StartsWith(state.name, u"qp")) {
        state.attributes[name] = value;
    }
}

void Model::OnNameValue(const MetricsEvent& event) {
    if (ScopeState* state = FindScope(event.id)) {
        AddAttributeToActivity(*state, TextOf(Value(event.name)), Value(event.value));
    }
}

void Model::OnNameValuePairs(const MetricsEvent& event) {
    ScopeState* state = FindScope(event.id);
    if (!state) {
        return;
    }
    const std::u16string listName = TextOf(Value(event.name));
    const Pairs pairs = PairsOf(event.pairs);
    if (listName == names::cpuAttrsName) {
        AddFigures(*state, pairs, DumpType::Cpu);
    } else if (listName == names::memoryAttrsName) {
        AddFigures(*state, pairs, DumpType::Memory);
    } else if (listName == names::resultAttrs) {
        for (const auto& [name, value] : pairs) {
            if (TextOf(name) == names::resultKeyAttr) {
                state->result = TextOf(value);
            } else {
                state->resultPairs.emplace_back(TextOf(name), TextOf(value));
            }
        }
    } else {
        for (const auto& [name, value] : pairs) {
            AddAttributeToActivity(*state, TextOf(name), value);
        }
    }
}

void Model::OnSupplementalPairs(const MetricsEvent& event) {
    if (ScopeState* state = FindScope(event.id)) {
        state->supplements.push_back({TimeOf(event).Microseconds(), PairsOf(event.pairs)});
    }
}

void Model::OnAttribute(const MetricsEvent& event) {
    ContextInfo* context = FindContext(event.contextId);
    if (!context) {
        return;
    }
    const std::u16string name = TextOf(Value(event.name));
    const bool isOwn = name == names::cidAttr || name == names::tidAttr;
    Pairs& list = isOwn ? context->ownAttributes : context->pendingAttributes;
    list.emplace_back(Value(event.name), Value(event.value));
}

void Model::OnAttributePairs(uint64 contextId, const std::u16string& listName, const Pairs& pairs) {
    ContextInfo* context = FindContext(contextId);
    if (!context) {
        return;
    }
    if (listName == names::requestContextAttributes) {
        AddAttributesToRequest(*context, pairs);
    } else if (listName == names::addContextAttributes) {
        Attributes layer;
        for (const auto& [name, value] : pairs) {
            layer[TextOf(name)] = value;
        }
        context->layers = context->layers
                              ? std::make_shared<std::vector<Attributes>>(*context->layers)
                              : std::make_shared<std::vector<Attributes>>();
        context->layers->push_back(layer);
    } else if (listName == names::addMappableContextAttributes) {
        Pairs forContext;
        Pairs forRequest;
        for (const auto& [name, value] : pairs) {
            const auto mapping = m_mappings.find(TextOf(name));
            if (mapping != m_mappings.end()) {
                forRequest.emplace_back(Value(mapping->second), value);
            } else {
                forContext.emplace_back(name, value);
            }
        }
        OnAttributePairs(contextId, std::u16string(names::addContextAttributes), forContext);
        if (!forRequest.empty()) {
            OnAttributePairs(
                contextId, std::u16string(names::requestContextAttributes), forRequest);
        }
    }
}

void Model::PassAttributesToParent(const ScopeState& state) {
    ContextInfo* context = FindContext(state.contextId);
    if (!context || context->parentId == 0 || !context->request) {
        return;
    }
    ContextInfo* parent = FindContext(context->parentId);
    if (!parent) {
        return;
    }
    if (!parent->request) {
        parent->request = NewRequest();
    }
    for (const std::u16string_view name : {names::viewAttr, names::workbookAttr}) {
        const auto found = context->request->find(std::u16string(name));
        if (found != context->request->end()) {
            const Value value = found->second;
            (*parent->request)[std::u16string(name)] = value;
        }
    }
}

}  // namespace model
