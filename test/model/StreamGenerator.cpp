#include "StreamGenerator.h"

#include "AttributeGenerator.h"
#include "Names.h"
#include "Random.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <tuple>

namespace model {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::MetricsValue;

// How likely the odd things are in one stream, in percent unless said otherwise.
struct Character {
    int disorder = 0;
    int wrongKinds = 0;
    int hostScopes = 10;
    int transparent = 20;
    int untracked = 15;
    int figures = 10;
    int optionChangesPerMille = 5;
    int sinkThrowsPerMille = 0;
    int backwardsTime = 1;
};

struct OpenScopeRecord {
    uint64 id = 0;
    uint64 flags = 0;
    MetricsValue name;
};

struct ContextRecord {
    bool isOpen = false;
    std::vector<OpenScopeRecord> scopes;
};

constexpr uint64 tracingBit = Metrics::flagTracing;
constexpr std::size_t deepestNesting = 9;

Character CharacterOf(Family family, Random& random) {
    Character character;
    character.disorder = random.OneOf({0, 0, 1, 3});
    character.wrongKinds = random.OneOf({0, 0, 0, 1});
    switch (family) {
        case Family::Plain:
            break;
        case Family::Disorder:
            character.disorder = random.OneOf({5, 15, 40});
            break;
        case Family::Foreground:
            character.hostScopes = 5;
            break;
        case Family::Server:
            character.hostScopes = 25;
            break;
        case Family::Transparent:
            character.transparent = 55;
            break;
        case Family::Figures:
        case Family::ProcessFigures:
            character.figures = 45;
            break;
        case Family::WrongKinds:
            character.wrongKinds = random.OneOf({3, 10, 30});
            character.sinkThrowsPerMille = 50;
            break;
        case Family::Everything:
            character.disorder = random.OneOf({0, 2, 10, 30});
            character.wrongKinds = random.OneOf({0, 0, 2, 10});
            character.hostScopes = random.OneOf({5, 20, 50});
            character.transparent = random.OneOf({10, 50});
            character.figures = random.OneOf({5, 30});
            character.optionChangesPerMille = 40;
            character.sinkThrowsPerMille = 10;
            character.backwardsTime = random.OneOf({0, 10});
            break;
    }
    return character;
}

MappingChange RandomMappingChange(Random& random) {
    MappingChange change;
    change.remove = random.Percent(35);
    change.name = random.OneOf({std::u16string(names::siteAttr),
                                std::u16string(names::ridAttr),
                                std::u16string(names::workbookAttr),
                                std::u16string(names::requestDescription),
                                std::u16string(u"path"),
                                std::u16string(u"workbook"),
                                std::u16string(u"5"),
                                std::u16string()});
    change.target = random.OneOf({std::u16string(names::siteAttr),
                                  std::u16string(names::userAttr),
                                  std::u16string(names::viewAttr),
                                  std::u16string(names::sidAttr),
                                  std::u16string(names::requestDescription),
                                  std::u16string(names::pidAttr),
                                  std::u16string(u"elsewhere")});
    return change;
}

StreamOptions RandomOptions(Family family, Random& random) {
    StreamOptions options;
    options.isForegroundThreadContextEnabled = random.Percent(15);
    options.isServer = random.Percent(30);
    options.isTarnPlatforms = random.Percent(25);
    options.isUnitTest = random.Percent(85);
    options.shouldLogTransparent = random.Percent(30);
    options.shouldLogResourceTracking = random.Percent(15);
    options.shouldLogForegroundActivity = random.Percent(10);
    options.isTarnEnabled = random.Percent(95);
    options.memoryModeOverride = static_cast<int32>(random.Below(3));
    switch (family) {
        case Family::Foreground:
            options.isForegroundThreadContextEnabled = true;
            break;
        case Family::Server:
            options.isServer = true;
            break;
        case Family::Figures:
            options.isUnitTest = true;
            options.isTarnPlatforms = random.Percent(90);
            options.shouldLogResourceTracking = random.Percent(60);
            break;
        case Family::ProcessFigures:
            options.isUnitTest = false;
            options.isTarnPlatforms = random.Percent(95);
            options.shouldLogResourceTracking = random.Percent(40);
            break;
        case Family::Everything:
            options.isForegroundThreadContextEnabled = random.Percent(50);
            options.isServer = random.Percent(50);
            options.isTarnPlatforms = random.Percent(50);
            options.shouldLogTransparent = random.Percent(50);
            options.shouldLogResourceTracking = random.Percent(40);
            break;
        default:
            break;
    }
    options.defaultSiteName = random.OneOf<const char16_t*>({u"", u"default-site", u"\u00E9'x\""});
    options.serverEnvironment = random.OneOf<const char16_t*>({u"", u"production"});
    if (random.Percent(30)) {
        for (uint64 left = 1 + random.Below(4); left > 0; --left) {
            options.mappingChanges.push_back(RandomMappingChange(random));
        }
    }
    for (std::size_t i = 0; i < numberOfCounters; ++i) {
        options.counterIsAttached[i] = random.Percent(93);
        options.counterNames[i] =
            random.Percent(95) ? "counter-" + std::to_string(i) : std::string();
    }
    options.counterCallbackIsSet = random.Percent(90);
    options.counterCallbackThrows = random.Percent(20);
    options.severityThreshold =
        random.Percent(85) ? 0 : static_cast<int32>(random.OneOf({1, 2, 3, 4}));
    return options;
}

// Writes one stream. It keeps its own rough picture of what is open, so that most events fit
// together; where the picture is wrong, the events are merely odd.
class Writer {
public:
    Writer(Family family, uint64 seed, uint64 number)
        : m_random((seed * 0x9E3779B97F4A7C15U + number + 1) * 0xD1B54A32D192ED03U +
                   static_cast<uint64>(family)),
          m_character(CharacterOf(family, m_random)),
          m_attributes(m_random, m_character.wrongKinds) {
        m_stream.family = family;
        m_stream.seed = seed;
        m_stream.number = number;
        m_stream.options = RandomOptions(family, m_random);
        m_stream.throughDefaultSink = m_random.Percent(10);
        m_stream.repeatingIds = m_random.Percent(10);
        m_stream.contextIds = {1, 2, 3, 4, 5, 6, 0, 0x8000000000000005U};
        m_stream.rootContextId = m_random.Percent(90) ? 1 : m_random.OneOf(m_stream.contextIds);
        m_time = m_random.OneOf({int64{0}, int64{1000000}, int64{123456789012345}});
        m_wallMicros = 1700000000000000 + m_random.Below(1000000000000);
    }

    Stream Write() {
        if (m_stream.options.isTarnEnabled) {
            m_contexts[m_stream.rootContextId];
        }
        if (m_random.Percent(90)) {
            OpenContext(m_stream.rootContextId);
        }
        for (uint64 left = 30 + m_random.Below(250); left > 0; --left) {
            WriteSomething();
        }
        while (m_random.Percent(97) && CloseInnermost()) {
        }
        return std::move(m_stream);
    }

private:
    MetricsEvent& Emit(uint32 type, uint64 id, uint64 contextId, uint64 flags) {
        Step step;
        if (m_random.PerMille(m_character.optionChangesPerMille)) {
            step.options = RandomOptions(m_stream.family, m_random);
        }
        step.sinkThrows = m_random.PerMille(m_character.sinkThrowsPerMille);
        step.event.type = static_cast<MetricsEventType>(type);
        step.event.id = id;
        step.event.contextId = contextId;
        step.event.flags = m_random.Percent(m_character.disorder / 3) ? OddFlags(flags) : flags;
        AdvanceTime(step.event);
        m_stream.steps.push_back(std::move(step));
        return m_stream.steps.back().event;
    }

    // An event about some scope; the context that it names does not matter for most types.
    MetricsEvent& EmitForScope(uint32 type) {
        const uint64 scopeId = SomeScopeId();
        const uint64 contextId = SomeContextId();
        return Emit(type, scopeId, contextId, tracingBit);
    }

    void AdvanceTime(MetricsEvent& event) {
        const int64 passed = m_random.OneOf({m_random.Between(0, 999999),
                                             m_random.Between(0, 5000000),
                                             m_random.Between(0, 3000000000),
                                             int64{0},
                                             int64{1000000}});
        m_wallMicros += static_cast<uint64>(passed) / 1000;
        m_time += m_random.Percent(m_character.backwardsTime) ? -passed : passed;
        event.time = m_time;
        event.wallSeconds = m_wallMicros / 1000000;
        event.wallMicros = static_cast<uint32>(m_wallMicros % 1000000);
    }

    uint64 OddFlags(uint64 flags) {
        switch (m_random.Below(6)) {
            case 0:
                return flags ^ tracingBit;
            case 1:
                return flags | (1 + m_random.Below(15));
            case 2:
                return (flags & ~tracingBit) | (uint64{1} << m_random.Below(4));
            case 3:
                return flags ^ Metrics::flagTransparent ^ Metrics::flagUntracked;
            case 4: {
                const uint64 low = m_random.Below(16);
                return low | (m_random.Below(16) << 51);
            }
            default:
                return flags | (uint64{1} << m_random.Between(4, 63));
        }
    }

    bool Odd() { return m_random.Percent(m_character.disorder); }

    uint64 AnyContextId() { return m_random.OneOf(m_stream.contextIds); }

    // Mostly the context that was used last.
    uint64 SomeContextId() {
        if (Odd() || m_contexts.empty()) {
            return AnyContextId();
        }
        if (m_contexts.count(m_current) == 0 || m_random.Percent(15)) {
            auto chosen = m_contexts.begin();
            std::advance(chosen, static_cast<std::ptrdiff_t>(m_random.Below(m_contexts.size())));
            m_current = chosen->first;
        }
        return m_current;
    }

    std::vector<uint64> OpenScopeIds() const {
        std::vector<uint64> ids;
        for (const auto& [contextId, context] : m_contexts) {
            for (const OpenScopeRecord& scope : context.scopes) {
                ids.push_back(scope.id);
            }
        }
        return ids;
    }

    // A scope id of no particular merit: small, used before, or never heard of.
    uint64 OddScopeId() {
        switch (m_random.Below(4)) {
            case 0:
                return m_random.Below(4);
            case 1:
                return 0xFFFFFFFFFFFFFFFFU - m_random.Below(2);
            default:
                return 100 + m_random.Below(m_nextScopeId - 99);
        }
    }

    uint64 SomeScopeId() {
        const std::vector<uint64> open = OpenScopeIds();
        if (open.empty() || Odd()) {
            return OddScopeId();
        }
        return m_random.Percent(60) ? open.back() : m_random.OneOf(open);
    }

    void WriteSomething() {
        const uint64 dice = m_random.Below(1000);
        if (dice < 40) {
            CreateContext();
        } else if (dice < 55) {
            OpenContext(Odd() ? AnyContextId() : SomeContextId());
        } else if (dice < 75) {
            CloseContext();
        } else if (dice < 335) {
            OpenScope();
        } else if (dice < 545) {
            CloseScope();
        } else if (dice < 600) {
            MetricsEvent& event = EmitForScope(7);
            std::tie(event.name, event.value) = m_attributes.ScopePair();
        } else if (dice < 670) {
            ContextAttribute(SomeContextId());
        } else if (dice < 800) {
            ScopeList();
        } else if (dice < 900) {
            ContextList();
        } else if (dice < 930) {
            MetricsEvent& event = EmitForScope(11);
            event.name = m_attributes.ListName(names::logSupplementsAttr);
            event.pairs = m_attributes.ScopePairs();
        } else if (dice < 980) {
            PostClose();
        } else {
            const uint32 type = m_random.OneOf<uint32>({0, 1, 13, 14, 15, 1000, 0xFFFFFFFFU});
            MetricsEvent& event = EmitForScope(type);
            event.name = m_attributes.ScopeName();
            event.pairs = m_attributes.ScopePairs();
        }
    }

    void CreateContext() {
        uint64 id = AnyContextId();
        if (!Odd()) {
            for (const uint64 candidate : m_stream.contextIds) {
                if (m_contexts.count(candidate) == 0 && candidate != 0) {
                    id = candidate;
                    break;
                }
            }
        }
        uint64 parent = m_random.Percent(20) ? 0 : SomeContextId();
        if (Odd()) {
            parent = m_random.Percent(40) ? id : AnyContextId();
        }
        Emit(2, id, parent, 0);
        m_contexts[id];
        if (parent != 0) {
            m_contexts[parent];
        }
        if (m_random.Percent(85)) {
            OpenContext(id);
            m_current = id;
        }
        if (m_random.Percent(70)) {
            MetricsEvent& event = Emit(8, 0, id, tracingBit);
            event.name = m_attributes.Name(names::tidAttr);
            event.value = m_attributes.ValueFor(names::tidAttr);
        }
    }

    void OpenContext(uint64 id) {
        Emit(3, id, m_random.Percent(50) ? 0 : AnyContextId(), 0);
        const auto found = m_contexts.find(id);
        if (found != m_contexts.end()) {
            found->second.isOpen = true;
        }
    }

    void CloseContext() {
        const uint64 id = SomeContextId();
        const auto found = m_contexts.find(id);
        // Most contexts close when their scopes are done.
        if (found != m_contexts.end() && !found->second.scopes.empty() && !m_random.Percent(15) &&
            !Odd()) {
            CloseInnermost();
            return;
        }
        Emit(4, id, 0, 0);
        m_contexts.erase(id);
    }

    uint64 ScopeFlags(bool hostScope) {
        if (hostScope) {
            return m_random.Percent(80) ? 0 : OddFlags(0);
        }
        uint64 flags = tracingBit;
        if (m_random.Percent(m_character.transparent)) {
            flags |= Metrics::flagTransparent;
        }
        if (m_random.Percent(m_character.untracked)) {
            flags |= Metrics::flagUntracked;
        }
        return flags;
    }

    void OpenScope() {
        const uint64 contextId = SomeContextId();
        const auto found = m_contexts.find(contextId);
        if (found != m_contexts.end() && found->second.scopes.size() >= deepestNesting) {
            CloseScope();
            return;
        }
        const bool hostScope = m_random.Percent(m_character.hostScopes);
        const uint64 id = Odd() ? OddScopeId() : m_nextScopeId++;
        MetricsEvent& event = Emit(5, id, contextId, ScopeFlags(hostScope));
        event.name = hostScope ? m_attributes.HostScopeName() : m_attributes.ScopeName();
        const bool carriesContext =
            m_stream.family == Family::Foreground ? m_random.Percent(85) : m_random.Percent(35);
        event.pairs = m_attributes.OpeningPairs(carriesContext);
        if (found != m_contexts.end() && found->second.isOpen) {
            found->second.scopes.push_back({id, event.flags, event.name});
        }
    }

    void CloseScope() {
        if (!Odd()) {
            CloseInnermost();
            return;
        }
        const uint64 contextId = AnyContextId();
        const uint64 flags = ScopeFlags(m_random.Percent(20));
        MetricsEvent& event = Emit(6, SomeScopeId(), contextId, flags);
        event.name = m_attributes.ScopeName();
        const auto found = m_contexts.find(contextId);
        if (found != m_contexts.end() && m_random.Percent(30)) {
            std::vector<OpenScopeRecord>& scopes = found->second.scopes;
            if (scopes.size() > 1) {
                event.id = scopes[scopes.size() - 2].id;
            }
        }
    }

    bool CloseInnermost() {
        uint64 contextId = m_current;
        if (m_contexts.count(contextId) == 0 || m_contexts[contextId].scopes.empty()) {
            const auto found = std::find_if(m_contexts.begin(), m_contexts.end(), [](auto& entry) {
                return !entry.second.scopes.empty();
            });
            if (found == m_contexts.end()) {
                return false;
            }
            contextId = found->first;
        }
        std::vector<OpenScopeRecord>& scopes = m_contexts[contextId].scopes;
        const OpenScopeRecord scope = scopes.back();
        scopes.pop_back();
        if (m_random.Percent(m_character.figures)) {
            Figures(scope.id);
        }
        if (m_random.Percent(12)) {
            Results(scope.id);
        }
        MetricsEvent& event = Emit(6, scope.id, contextId, scope.flags);
        event.name = scope.name;
        return true;
    }

    void Figures(uint64 scopeId) {
        for (const std::u16string_view list : {names::memoryAttrsName, names::cpuAttrsName}) {
            if (m_random.Percent(80)) {
                MetricsEvent& event = Emit(9, scopeId, m_current, tracingBit);
                event.name = m_attributes.ListName(list);
                event.pairs = m_attributes.FigurePairs();
            }
        }
    }

    void Results(uint64 scopeId) {
        MetricsEvent& event = Emit(9, scopeId, m_current, tracingBit);
        event.name = m_attributes.ListName(names::resultAttrs);
        event.pairs = m_attributes.ResultPairs();
    }

    void ContextAttribute(uint64 contextId) {
        MetricsEvent& event = Emit(8, m_random.Below(3), contextId, tracingBit);
        std::tie(event.name, event.value) = m_attributes.ContextPair();
    }

    void ScopeList() {
        const uint64 id = SomeScopeId();
        if (m_random.Percent(m_character.figures)) {
            Figures(id);
            return;
        }
        if (m_random.Percent(35)) {
            Results(id);
            return;
        }
        MetricsEvent& event = Emit(9, id, m_current, tracingBit);
        event.name = m_attributes.ListName(m_random.Percent(60) ? names::activityAttributes
                                                                : m_attributes.AnyListName());
        event.pairs = m_attributes.ScopePairs();
    }

    void ContextList() {
        const uint64 contextId = SomeContextId();
        MetricsEvent& event = Emit(10, m_random.Below(3), contextId, tracingBit);
        const std::u16string_view list = m_random.Percent(85)
                                             ? m_random.OneOf({names::requestContextAttributes,
                                                               names::addMappableContextAttributes,
                                                               names::addContextAttributes})
                                             : m_attributes.AnyListName();
        event.name = m_attributes.ListName(list);
        event.pairs = m_attributes.ContextPairs();
    }

    void PostClose() {
        MetricsEvent& event = EmitForScope(12);
        event.name = m_attributes.ScopeName();
        event.value = m_random.Percent(60) ? MetricsValue(0) : m_attributes.CloseAction();
    }

    Random m_random;
    Character m_character;
    AttributeGenerator m_attributes;
    Stream m_stream;
    std::map<uint64, ContextRecord> m_contexts;
    uint64 m_current = 1;
    uint64 m_nextScopeId = 100;
    int64 m_time = 0;
    uint64 m_wallMicros = 0;
};

std::string PrintPairs(const Metrics::NameValueList& pairs) {
    std::string printed;
    for (const auto& [name, value] : pairs) {
        printed += (printed.empty() ? "" : ", ") + Print(name) + " = " + Print(value);
    }
    return "[" + printed + "]";
}

}  // namespace

Stream GenerateStream(Family family, uint64 seed, uint64 number) {
    return Writer(family, seed, number).Write();
}

std::string Print(const MetricsValue& value) {
    const std::string tag = std::to_string(value.type) + ":";
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return tag + std::to_string(value.integer);
        case MetricsValue::MV_Bool:
            return tag + (value.boolean ? "true" : "false");
        case MetricsValue::MV_Double:
            return tag + std::to_string(value.real);
        case MetricsValue::MV_Utf8String: {
            const std::string& bytes = value.utf8 ? *value.utf8 : std::string();
            std::u16string units;
            for (const char byte : bytes) {
                units += static_cast<char16_t>(static_cast<unsigned char>(byte));
            }
            return tag + Print(units);
        }
        case MetricsValue::MV_Utf16String:
            return tag + Print(value.utf16 ? *value.utf16 : std::u16string());
        default:
            return tag + "?";
    }
}

std::string Print(const MetricsEvent& event) {
    char flags[24];
    std::snprintf(flags, sizeof flags, "0x%llX", static_cast<unsigned long long>(event.flags));
    return "type=" + std::to_string(static_cast<uint32>(event.type)) +
           " id=" + std::to_string(event.id) + " context=" + std::to_string(event.contextId) +
           " flags=" + flags + " time=" + std::to_string(event.time) +
           " wall=" + std::to_string(event.wallSeconds) + "+" + std::to_string(event.wallMicros) +
           " name=" + Print(event.name) + " value=" + Print(event.value) +
           " pairs=" + PrintPairs(event.pairs);
}

std::string Print(const StreamOptions& options) {
    const auto on = [](const char* name, bool value) {
        return value ? std::string(" ") + name : std::string();
    };
    std::string printed =
        "on:" + on("enabled", options.isTarnEnabled) + on("platforms", options.isTarnPlatforms) +
        on("foreground", options.isForegroundThreadContextEnabled) +
        on("server", options.isServer) + on("unit-test", options.isUnitTest) +
        on("log-resources", options.shouldLogResourceTracking) +
        on("log-transparent", options.shouldLogTransparent) +
        on("counter-callback", options.counterCallbackIsSet) +
        on("that-throws", options.counterCallbackThrows) + "; memory mode " +
        std::to_string(options.memoryModeOverride) + ", threshold " +
        std::to_string(options.severityThreshold) + ", site " + Print(options.defaultSiteName) +
        ", environment " + Print(options.serverEnvironment) + ", mappings:";
    for (const MappingChange& change : options.mappingChanges) {
        printed += (change.remove ? " -" : " +") + Print(change.name) +
                   (change.remove ? "" : "->" + Print(change.target));
    }
    return printed;
}

}  // namespace model
