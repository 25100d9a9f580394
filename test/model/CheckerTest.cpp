#include "Duel.h"
#include "Model.h"
#include "MonitorRun.h"
#include "Names.h"
#include "StreamGenerator.h"

#include "cvlcoreplatform/TString.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Proof that the comparison of model and library finds differences: a stream on which both agree
// is run again with one thing changed in what the library did, and the change must be named.
namespace model {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::MetricsValue;
using Metrics::NameValueList;

constexpr uint64 tracing = Metrics::flagTracing;

class DirectedStream {
public:
    DirectedStream() {
        m_stream.rootContextId = 1;
        m_stream.contextIds = {1, 2};
        m_stream.options.isServer = true;
        m_stream.options.isTarnPlatforms = true;
        m_stream.options.shouldLogResourceTracking = true;
        m_stream.options.memoryModeOverride = 2;
        m_stream.options.serverEnvironment = u"production";
        m_stream.options.counterNames = {"cc", "cx", "rc", "rx", "so", "sx"};
    }

    MetricsEvent& Add(uint32 type, uint64 id, uint64 contextId, uint64 flags = tracing) {
        Step step;
        step.event.type = static_cast<MetricsEventType>(type);
        step.event.id = id;
        step.event.contextId = contextId;
        step.event.flags = flags;
        step.event.time = 1000000 * static_cast<int64>(m_stream.steps.size());
        step.event.wallSeconds = 1700000000;
        step.event.wallMicros = static_cast<uint32>(m_stream.steps.size());
        m_stream.steps.push_back(std::move(step));
        return m_stream.steps.back().event;
    }

    void List(
        uint32 type, uint64 id, uint64 contextId, std::u16string_view name, NameValueList pairs) {
        MetricsEvent& event = Add(type, id, contextId);
        event.name = MetricsValue(TString(name));
        event.pairs = std::move(pairs);
    }

    void Open(uint64 id, uint64 contextId, const char* name, uint64 flags = tracing) {
        MetricsEvent& event = Add(5, id, contextId, flags);
        event.name = MetricsValue(name);
        event.pairs = {{"path", "/tmp"}, {"rows", 5}};
    }

    void Close(uint64 id, uint64 contextId) { Add(6, id, contextId); }

    const Stream& Get() const { return m_stream; }

private:
    Stream m_stream;
};

// Everything that can be seen of a monitor happens in it at least once.
Stream RichStream() {
    DirectedStream stream;
    stream.Add(3, 1, 0);
    stream.List(10, 0, 1, names::addContextAttributes, {{"team", "red"}});
    stream.Open(100, 1, "request");
    stream.List(10, 0, 1, names::requestContextAttributes, {{"site", "s"}, {"user", "u"}});
    stream.Open(101, 1, "load");
    stream.List(9, 101, 1, names::memoryAttrsName, {{"ai", 64}, {"di", 32}});
    stream.List(9, 101, 1, names::resultAttrs, {{"rk", "failure"}, {"msg", "gone"}});
    stream.List(11, 101, 1, names::logSupplementsAttr, {{"step", 1}});
    stream.List(11, 101, 1, names::logSupplementsAttr, {{"step", 2}});
    stream.Close(101, 1);
    stream.Open(102, 1, "hidden", tracing | Metrics::flagTransparent);
    stream.Open(103, 1, "search");
    stream.Close(100, 1);
    stream.Open(104, 1, "orphan");
    stream.List(10, 0, 1, names::requestContextAttributes, {{"user", 5}});
    stream.Close(104, 1);
    stream.List(10, 0, 1, names::requestContextAttributes, {{"user", "u"}});
    stream.Close(103, 1);

    stream.Add(2, 2, 0);
    stream.Add(3, 2, 0);
    stream.Open(200, 2, "request");
    stream.Open(201, 2, "load");
    stream.List(9, 201, 2, names::resultAttrs, {{"rk", "failure"}});
    stream.Close(201, 2);
    stream.Close(200, 2);
    return stream.Get();
}

// Changes the first thing it applies to and says whether there was one.
using Mutation = std::function<bool(Observation&)>;

Mutation OnEntry(Entry::Kind kind, const std::function<bool(Entry&)>& change) {
    return [kind, change](Observation& observation) {
        for (Entry& entry : observation.journal) {
            if (entry.kind == kind && change(entry)) {
                return true;
            }
        }
        return false;
    };
}

Mutation OnEvent(const std::function<void(LogEvent&)>& change) {
    return OnEntry(Entry::Kind::ActivityEvent, [change](Entry& entry) {
        change(entry.event);
        return true;
    });
}

// The field at the end of the path, if the event has it.
Mutation OnField(Node LogEvent::*part,
                 const std::vector<std::u16string>& path,
                 const std::function<void(Node&)>& change) {
    return OnEntry(Entry::Kind::ActivityEvent, [part, path, change](Entry& entry) {
        Node* node = &(entry.event.*part);
        for (const std::u16string& name : path) {
            node = node->Find(name);
            if (!node) {
                return false;
            }
        }
        change(*node);
        return true;
    });
}

Mutation OnRaised(const std::function<void(Raised&)>& change) {
    return [change](Observation& observation) {
        if (observation.raised) {
            change(*observation.raised);
        }
        return observation.raised.has_value();
    };
}

Mutation OnLine(Entry::Kind kind) {
    return OnEntry(kind, [](Entry& entry) {
        entry.lineDifference = "two fields of one name";
        return true;
    });
}

struct NamedMutation {
    std::string field;  ///< what the difference must name
    Mutation mutation;
};

std::vector<NamedMutation> Mutations() {
    const auto more = [](Node& node) { ++node.integer; };
    const auto longer = [](Node& node) { node.text += u"x"; };
    const auto slower = [](Node& node) { node.real += 0.001; };
    return {
        {"event.name", OnEvent([](LogEvent& event) { event.name += u"x"; })},
        {"event.time", OnEvent([](LogEvent& event) { ++event.time; })},
        {"event.pid", OnEvent([](LogEvent& event) { ++event.processId; })},
        {"event.tid", OnEvent([](LogEvent& event) { ++event.threadId; })},
        {"event.session", OnEvent([](LogEvent& event) { event.session = u"x"; })},
        {"event.request", OnEvent([](LogEvent& event) { event.request = u"-"; })},
        {"event.request", OnEvent([](LogEvent& event) { event.request.pop_back(); })},
        {"event.user", OnEvent([](LogEvent& event) { event.user = u"x"; })},
        {"event.site", OnEvent([](LogEvent& event) { event.site = u""; })},
        {"event.environment", OnEvent([](LogEvent& event) { event.environment = Node(); })},
        {"environment.\"host\"", OnField(&LogEvent::environment, {u"host"}, longer)},
        {"environment.\"env\"", OnField(&LogEvent::environment, {u"env"}, longer)},
        {"activity.\"id\"", OnField(&LogEvent::activity, {u"id"}, longer)},
        {"activity.\"sponsor\"", OnField(&LogEvent::activity, {u"sponsor"}, longer)},
        {"activity.\"root\"", OnField(&LogEvent::activity, {u"root"}, longer)},
        {"activity.\"depth\"", OnField(&LogEvent::activity, {u"depth"}, more)},
        {"activity.\"depth\"",
         OnField(&LogEvent::activity,
                 {u"depth"},
                 [](Node& node) { node = Node::Real(static_cast<double>(node.integer)); })},
        {"activity.\"elapsed\"", OnField(&LogEvent::activity, {u"elapsed"}, slower)},
        {"activity.\"elapsed\"",
         OnField(&LogEvent::activity,
                 {u"elapsed"},
                 [](Node& node) { node.kind = Node::Kind::FixedReal; })},
        {"activity.\"exclusive\"", OnField(&LogEvent::activity, {u"exclusive"}, slower)},
        {"activity.\"rv\".\"msg\"", OnField(&LogEvent::activity, {u"rv", u"msg"}, longer)},
        {"activity.\"rnerr\"", OnField(&LogEvent::activity, {u"rnerr"}, more)},
        {"activity.\"res\".\"alloc\".\"ai\"",
         OnField(&LogEvent::activity, {u"res", u"alloc", u"ai"}, slower)},
        {"activity.\"res\".\"ntid\"", OnField(&LogEvent::activity, {u"res", u"ntid"}, more)},
        {"activity.\"surplus\"",
         OnEvent([](LogEvent& event) { event.activity.Set(u"surplus", Node::Integer(1)); })},
        {"activity.\"type\"", OnEvent([](LogEvent& event) { event.activity.fields.pop_back(); })},
        {"attributes.\"team\"", OnField(&LogEvent::attributes, {u"team"}, longer)},
        {"body.\"rows\"", OnField(&LogEvent::body, {u"rows"}, more)},
        {"body.\"logs\"",
         OnField(&LogEvent::body,
                 {u"logs"},
                 [](Node& node) { std::swap(node.items[0], node.items[1]); })},
        {"body.\"logs\"",
         OnField(&LogEvent::body, {u"logs"}, [](Node& node) { node.items.pop_back(); })},
        {"].line", OnLine(Entry::Kind::ActivityEvent)},
        {"].line", OnLine(Entry::Kind::DiagnosticEvent)},
        {"counterName",
         OnEntry(Entry::Kind::CounterCall,
                 [](Entry& entry) {
                     entry.counterName += "x";
                     return true;
                 })},
        {"amount",
         OnEntry(Entry::Kind::CounterCall,
                 [](Entry& entry) {
                     ++entry.amount;
                     return true;
                 })},
        {"counters[4]",
         OnEntry(Entry::Kind::CounterCall,
                 [](Entry& entry) {
                     --entry.counters[4];
                     return true;
                 })},
        {"severity",
         OnEntry(Entry::Kind::Message,
                 [](Entry& entry) {
                     ++entry.severity;
                     return true;
                 })},
        {"text",
         OnEntry(Entry::Kind::Message,
                 [](Entry& entry) {
                     entry.text.pop_back();
                     return true;
                 })},
        {"body.\"memory\".\"aist\"",
         OnEntry(Entry::Kind::DiagnosticEvent,
                 [](Entry& entry) {
                     ++entry.body.Find(u"memory")->Find(u"aist")->integer;
                     return true;
                 })},
        {"journal[",
         [](Observation& observation) {
             const bool any = !observation.journal.empty();
             if (any) {
                 observation.journal.pop_back();
             }
             return any;
         }},
        {"journal[",
         [](Observation& observation) {
             const bool any = !observation.journal.empty();
             if (any) {
                 observation.journal.push_back(observation.journal.back());
             }
             return any;
         }},
        {"journal[",
         [](Observation& observation) {
             const bool any = observation.journal.size() > 1;
             if (any) {
                 std::swap(observation.journal.front(), observation.journal.back());
             }
             return any;
         }},
        {"raised", OnRaised([](Raised& raised) { raised.kind = Raised::Kind::Sink; })},
        {"raised.file", OnRaised([](Raised& raised) { raised.file += "x"; })},
        {"raised.line", OnRaised([](Raised& raised) { ++*raised.line; })},
        {"raised.text", OnRaised([](Raised& raised) { raised.text += "x"; })},
        {"raised.code", OnRaised([](Raised& raised) { ++*raised.code; })},
        {"raised.errorText", OnRaised([](Raised& raised) { raised.errorText.pop_back(); })},
        {"raised",
         [](Observation& observation) {
             const bool any = observation.raised.has_value();
             observation.raised.reset();
             return any;
         }},
        {"raised",
         [](Observation& observation) {
             observation.raised.emplace();
             return true;
         }},
        {"counters[0]",
         [](Observation& observation) {
             ++observation.counters[0];
             return true;
         }},
        {"openContexts",
         [](Observation& observation) {
             ++observation.openContexts;
             return true;
         }},
        {"openScopes",
         [](Observation& observation) {
             ++observation.openScopes;
             return true;
         }},
        {"openScopesOfContext[1]",
         [](Observation& observation) {
             ++observation.openScopesOfContext[1];
             return true;
         }},
    };
}

TEST(CheckerTest, ModelAndLibraryAgreeOnTheDirectedStream) {
    Sightings seen;

    const auto parting = RunStream(RichStream(), &seen);

    EXPECT_FALSE(parting) << Describe(RichStream(), *parting);
    EXPECT_EQ(seen.beginEvents, 6U);
    EXPECT_EQ(seen.endEvents, 4U);
    EXPECT_EQ(seen.generatedRequestIds, 10U);
    EXPECT_EQ(seen.dumps, 9U);
    EXPECT_EQ(seen.warnings, 1U);
    EXPECT_EQ(seen.textFieldErrors, 1U);
}

TEST(CheckerTest, EveryChangeOfWhatTheLibraryDidIsFound) {
    const Stream stream = RichStream();
    int number = 0;
    for (const NamedMutation& mutation : Mutations()) {
        SCOPED_TRACE("mutation " + std::to_string(number++) + " of " + mutation.field);
        bool applied = false;
        std::size_t changedStep = 0;
        Tampering tampering;
        tampering.observation = [&](std::size_t step, Observation& observation) {
            if (!applied && mutation.mutation(observation)) {
                applied = true;
                changedStep = step;
            }
        };

        const auto parting = RunStream(stream, nullptr, tampering);

        ASSERT_TRUE(applied) << "the stream holds nothing to change";
        ASSERT_TRUE(parting);
        EXPECT_EQ(parting->step, static_cast<int64>(changedStep));
        EXPECT_THAT(parting->difference.field, testing::HasSubstr(mutation.field));
        EXPECT_NE(parting->difference.expected, parting->difference.actual);
    }
}

TEST(CheckerTest, AGeneratedRequestIdThatComesTwiceIsFound) {
    std::u16string firstId;
    Tampering tampering;
    tampering.observation = [&](std::size_t, Observation& observation) {
        OnEvent([&](LogEvent& event) {
            if (firstId.empty()) {
                firstId = event.request;
            }
            event.request = firstId;
        })(observation);
    };

    const auto parting = RunStream(RichStream(), nullptr, tampering);

    ASSERT_TRUE(parting);
    EXPECT_THAT(parting->difference.field, testing::HasSubstr("event.request"));
    EXPECT_THAT(parting->difference.actual, testing::HasSubstr("used before"));
}

TEST(CheckerTest, AnEventThatTheLibraryDoesNotSeeIsFound) {
    const Stream stream = RichStream();
    int found = 0;
    for (std::size_t missing = 0; missing < stream.steps.size(); ++missing) {
        Tampering tampering;
        tampering.event = [missing](std::size_t step, MetricsEvent& event) {
            if (step == missing) {
                event.type = MetricsEventType{0};
            }
        };
        found += RunStream(stream, nullptr, tampering) ? 1 : 0;
    }

    EXPECT_EQ(found, static_cast<int>(stream.steps.size()));
}

TEST(CheckerTest, ADescriptionNamesSeedStreamEventFieldAndBothSides) {
    Stream stream = RichStream();
    stream.seed = 4711;
    stream.number = 12;
    Tampering tampering;
    tampering.observation = [](std::size_t, Observation& observation) {
        OnEvent([](LogEvent& event) { event.user += u"?"; })(observation);
    };
    const auto parting = RunStream(stream, nullptr, tampering);
    ASSERT_TRUE(parting);

    const std::string description = Describe(stream, *parting, tampering);

    EXPECT_THAT(description, testing::HasSubstr("seed 4711, stream 12, event 2 of 25"));
    EXPECT_THAT(description, testing::HasSubstr("event:   type=5 id=100 context=1"));
    EXPECT_THAT(description, testing::HasSubstr("field:   journal[3].event.user"));
    EXPECT_THAT(description, testing::HasSubstr("model:   \"-\"\n  library: \"-?\""));
    EXPECT_THAT(description, testing::HasSubstr("TARN_MODEL_SEED=4711 TARN_MODEL_STREAM=12"));
}

TEST(CheckerTest, ShrinkingKeepsOnlyTheEventsThatADifferenceNeeds) {
    Tampering tampering;
    tampering.observation = [](std::size_t, Observation& observation) {
        OnEvent([](LogEvent& event) { event.user += u"?"; })(observation);
    };

    const Stream shrunken = Shrink(RichStream(), tampering);

    ASSERT_EQ(shrunken.steps.size(), 2U);
    EXPECT_EQ(shrunken.steps[0].event.type, MetricsEventType::OpenContext);
    EXPECT_EQ(shrunken.steps[1].event.type, MetricsEventType::OpenScope);
}

TEST(CheckerTest, TheSameSeedGivesTheSameStreamAndAnotherSeedAnother) {
    const auto print = [](const Stream& stream) {
        std::string text = Print(stream.options);
        for (const Step& step : stream.steps) {
            text += Print(step.event);
        }
        return text;
    };

    for (int family = 0; family < numberOfFamilies; ++family) {
        const std::string text = print(GenerateStream(static_cast<Family>(family), 7, 3));

        EXPECT_EQ(text, print(GenerateStream(static_cast<Family>(family), 7, 3)));
        EXPECT_NE(text, print(GenerateStream(static_cast<Family>(family), 8, 3)));
        EXPECT_NE(text, print(GenerateStream(static_cast<Family>(family), 7, 4)));
    }
}

}  // namespace
}  // namespace model
