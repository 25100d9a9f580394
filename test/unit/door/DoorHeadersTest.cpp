#include "DoorTest.h"
#include "Threads.h"

#include "tarn/ActivityTracer.h"
#include "tarn/Headers.h"

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

using Headers = std::map<std::string, std::string>;

constexpr const char* foreignParent = "00-4bf92f3577b34da6a3ce929d0e0e4736-00f067aa0ba902b7-00";
constexpr const char* foreignRoot = "4BF92F35-77B3-4DA6-A3CE-929D0E0E4736";

/// As gRPC refers to texts.
struct TextReference {
    const char* data() const { return text.data(); }

    std::size_t size() const { return text.size(); }

    std::string text;
};

class DoorHeadersTest : public DoorTest {
protected:
    DoorHeadersTest() { Monitor().SetAdditionalFields(true); }

    /// What a server logs of a request.
    void Serve(const Headers& headers) {
        const Scope serve(Extract(headers), "serve");
        Inject(onwards);
    }

    LogValue ActivityField(const EventMatcher& matcher, const std::string& name) {
        for (const TLog::Event& event : Events()) {
            if (testing::Value(event, matcher)) {
                return Field(event, Table::Activity, name).value_or(LogValue("none"));
            }
        }
        return LogValue("no such event");
    }

    Headers onwards;
};

TEST_F(DoorHeadersTest, WhatIsInjectedIsExtractedUnderTheSameRootWithTheExactCaller) {
    Headers headers;
    std::string root;
    std::string caller;
    {
        const Scope outer("outer");
        const Scope call("call");
        Inject(headers);
        root = call.GetRootId().View();
        caller = call.GetActivityId().View();
    }
    OnAnotherThread([this, &headers] { Serve(headers); });

    EXPECT_THAT(headers,
                ElementsAre(Key("corvala-caller-id"),
                            Key("corvala-extra-depth"),
                            Key("corvala-trace-id"),
                            Key("traceparent"),
                            Key("tracestate")));
    EXPECT_THAT(Events(),
                Contains(AllOf(Begins("serve"),
                               HasActivityField("root", root),
                               HasActivityField("caller", caller),
                               HasActivityField("depth", 2))));
}

TEST_F(DoorHeadersTest, TheHeadersOfTheW3cAloneSayTheSame) {
    Headers headers;
    std::string root;
    std::string caller;
    {
        const Scope outer("outer");
        const Scope call("call");
        Inject(headers);
        root = call.GetRootId().View();
        caller = call.GetActivityId().View();
    }
    headers.erase("corvala-caller-id");
    headers.erase("corvala-extra-depth");
    headers.erase("corvala-trace-id");
    Serve(headers);

    EXPECT_THAT(Events(),
                Contains(AllOf(Begins("serve"),
                               HasActivityField("root", root),
                               HasActivityField("caller", caller),
                               HasActivityField("depth", 2))));
}

TEST_F(DoorHeadersTest, TheHeadersOfThisSystemAloneSayTheSameWhateverTheFormOfTheIds) {
    Serve({{"corvala-trace-id", "abc:abc:0"},
           {"corvala-extra-depth", "7"},
           {"corvala-caller-id", "someone"}});

    EXPECT_THAT(Events(),
                Contains(AllOf(Begins("serve"),
                               HasActivityField("root", "abc"),
                               HasActivityField("caller", "someone"),
                               HasActivityField("depth", 8))));
    EXPECT_EQ(onwards["corvala-trace-id"], "abc:abc:0");
    EXPECT_EQ(onwards.count("traceparent"), 0U) << "such a root has no trace id";
}

TEST_F(DoorHeadersTest, ATraceOfAnotherSystemGoesOnAndIsPassedOn) {
    Serve({{"traceparent", foreignParent}, {"tracestate", "a=1,b=2"}});

    EXPECT_THAT(Events(),
                Contains(AllOf(Begins("serve"),
                               HasActivityField("root", foreignRoot),
                               HasActivityField("caller", "00f067aa0ba902b7"),
                               HasActivityField("depth", 1))));
    const std::string parent = onwards["traceparent"];
    EXPECT_EQ(parent.substr(0, 36), std::string(foreignParent).substr(0, 36));
    EXPECT_NE(parent.substr(36, 16), "00f067aa0ba902b7");
    EXPECT_EQ(parent.substr(52), "-00") << "not sampled, as it came";
    EXPECT_EQ(onwards["tracestate"].substr(0, 5), "tarn=");
    EXPECT_EQ(onwards["tracestate"].substr(onwards["tracestate"].find(',')), ",a=1,b=2");
    EXPECT_EQ(onwards["corvala-trace-id"], std::string(foreignRoot) + ":" + foreignRoot + ":0");
}

TEST_F(DoorHeadersTest, WhatCameFromElsewhereGoesAlongToOtherThreadsAndActivities) {
    Headers fromThread;
    Headers fromActivity;
    {
        const Scope serve(Extract(Headers{{"traceparent", foreignParent}, {"tracestate", "a=1"}}),
                          "serve");
        OnAnotherThread([&fromThread, from = Handoff()] {
            const Scope work(from, "work");
            Inject(fromThread);
        });
        Activity activity("activity");
        OnAnotherThread([&] {
            const Resumed resumed(activity);
            const Scope inner("inner");
            Inject(fromActivity);
        });
    }

    for (Headers* const headers : {&fromThread, &fromActivity}) {
        EXPECT_THAT((*headers)["tracestate"], testing::EndsWith(",a=1"));
        EXPECT_THAT((*headers)["traceparent"], testing::EndsWith("-00"));
    }
}

TEST_F(DoorHeadersTest, WorkThatWasHandedOverLocallyDoesNotPassOnWhatCameWithAnotherRequest) {
    const Handoff local;
    Headers headers;
    {
        const Scope serve(Extract(Headers{{"traceparent", foreignParent}, {"tracestate", "a=1"}}),
                          "serve");
        const Scope work(local, "work");
        Inject(headers);
    }

    EXPECT_THAT(headers["tracestate"], testing::Not(testing::HasSubstr("a=1")));
}

TEST_F(DoorHeadersTest, HeadersOfThisSystemCountBeforeThoseOfAnotherTree) {
    Headers headers;
    std::string root;
    {
        const Scope call("call");
        Inject(headers);
        root = call.GetRootId().View();
    }
    headers["traceparent"] = foreignParent;
    headers["tracestate"] = "a=1";
    Serve(headers);

    EXPECT_EQ(ActivityField(Begins("serve"), "root"), LogValue(root));
    EXPECT_THAT(onwards["tracestate"], testing::Not(testing::HasSubstr("a=1")));
    EXPECT_THAT(onwards["traceparent"], testing::EndsWith("-01"));
}

TEST_F(DoorHeadersTest, ASystemBetweenThatWritesAParentOfItsOwnIsPassedOver) {
    Headers headers;
    std::string caller;
    {
        const Scope call("call");
        Inject(headers);
        caller = call.GetActivityId().View();
    }
    headers["traceparent"].replace(36, 16, "00f067aa0ba902b7");
    headers.erase("corvala-caller-id");
    Serve(headers);

    EXPECT_EQ(ActivityField(Begins("serve"), "caller"), LogValue(caller));
}

TEST_F(DoorHeadersTest, WithoutHeadersARequestBeginsATreeWhateverIsCurrent) {
    const uint64 refused = ActivityTracer::GetRefusedHeaders();
    {
        const Scope loop("loop");
        Serve({});
    }

    EXPECT_EQ(Tree(),
              "loop\n"
              "serve\n");
    EXPECT_EQ(ActivityTracer::GetRefusedHeaders(), refused);
}

TEST_F(DoorHeadersTest, WrongHeadersAreRefusedCountedAndBeginATree) {
    const uint64 refused = ActivityTracer::GetRefusedHeaders();
    const std::vector<Headers> wrong{
        {{"corvala-trace-id", "\r\nSet-Cookie: x"}, {"corvala-extra-depth", "1"}},
        {{"traceparent", "00-00000000000000000000000000000000-00f067aa0ba902b7-01"}},
        {{"traceparent", ""}, {"tracestate", "a=1"}},
        {{"traceparent", std::string(100'000, '0')}}};
    for (const Headers& headers : wrong) {
        Serve(headers);
    }

    EXPECT_EQ(ActivityTracer::GetRefusedHeaders() - refused, 2U)
        << "an empty header counts as missing, one that is far too long is not read";
    EXPECT_EQ(CountOf(AllOf(Begins("serve"), HasActivityField("depth", 0))), wrong.size());
}

TEST_F(DoorHeadersTest, AWrongCallerAndWrongStateCostNothingElse) {
    const std::string root = foreignRoot;
    Serve({{"corvala-trace-id", root + ":" + root + ":0"},
           {"corvala-extra-depth", "3"},
           {"corvala-caller-id", "a\nb"},
           {"traceparent", foreignParent},
           {"tracestate", "tarn=x\ny:9,a=1"}});

    EXPECT_THAT(Events(),
                Contains(AllOf(Begins("serve"),
                               HasActivityField("root", root),
                               HasActivityField("caller", "00f067aa0ba902b7"),
                               HasActivityField("depth", 4))));
    EXPECT_THAT(onwards["tracestate"], testing::Not(testing::HasSubstr("a=1")));
}

TEST_F(DoorHeadersTest, AHeaderThatComesTwiceIsRefused) {
    const std::multimap<std::string, std::string> headers{{"traceparent", foreignParent},
                                                          {"Traceparent", foreignParent}};
    const uint64 refused = ActivityTracer::GetRefusedHeaders();

    { const Scope serve(Extract(headers), "serve"); }

    EXPECT_EQ(ActivityTracer::GetRefusedHeaders() - refused, 1U);
    EXPECT_EQ(CountOf(AllOf(Begins("serve"), HasActivityField("depth", 0))), 1U);
}

TEST_F(DoorHeadersTest, NothingIsInjectedWhereNothingIsCurrentOrIdsAreOff) {
    Headers headers;
    Inject(headers);
    EXPECT_THAT(headers, IsEmpty());

    OptTarn::SetIsForegroundThreadContextEnabled(false);
    const Scope call("call");
    Inject(headers);
    const Scope serve(Extract(Headers{{"traceparent", foreignParent}}), "serve");
    EXPECT_THAT(headers, IsEmpty());
}

TEST_F(DoorHeadersTest, HeadersOfAllKindsAreWrittenAndReadWhateverTheirCase) {
    const Scope call("call");
    const std::string id(call.GetActivityId().View());

    std::multimap<std::string, std::string> table{{"CORVALA-CALLER-ID", "old"}};
    Inject(table);
    EXPECT_EQ(table.size(), 5U);
    EXPECT_EQ(table.find("corvala-caller-id")->second, id);

    std::vector<std::pair<std::string, std::string>> row{{"host", "here"}, {"Traceparent", "old"}};
    Inject(row);
    EXPECT_EQ(row.size(), 6U);

    struct {
        void AddMetadata(const std::string& name, const std::string& value) {
            values.emplace(name, value);
        }

        Headers values;
    } metadata;

    Inject(metadata);
    EXPECT_EQ(metadata.values.size(), 5U);

    struct {
        std::multimap<std::string, std::string> headers;
    } request;

    Inject(request);
    EXPECT_EQ(request.headers.size(), 5U);

    Headers byFunction;
    Inject([&byFunction](std::string_view name, std::string_view value) {
        byFunction.emplace(name, value);
    });
    EXPECT_EQ(byFunction.size(), 5U);

    std::vector<std::pair<TextReference, TextReference>> references;
    for (const auto& [name, value] : byFunction) {
        references.push_back({{name}, {value}});
    }
    const auto find = [&byFunction](std::string_view name) {
        const auto found = byFunction.find(std::string(name));
        return found != byFunction.end() ? found->second : std::string();
    };
    { const Scope serve(Extract(table), "serve"); }
    { const Scope serve(Extract(row), "serve"); }
    { const Scope serve(Extract(metadata.values), "serve"); }
    { const Scope serve(Extract(request), "serve"); }
    { const Scope serve(Extract(references), "serve"); }
    { const Scope serve(Extract(find), "serve"); }
    EXPECT_EQ(CountOf(AllOf(Begins("serve"), HasActivityField("caller", id))), 6U);
}

TEST_F(DoorHeadersTest, AFunctionThatThrowsCostsTheHeadersOnly) {
    const Scope call("call");
    int calls = 0;
    Inject([&calls](std::string_view /*name*/, std::string_view /*value*/) {
        ++calls;
        throw std::runtime_error("no room");
    });
    EXPECT_EQ(calls, 1);

    Activity serve(Extract([](std::string_view) -> std::string { throw std::runtime_error("x"); }),
                   "serve");
    serve.End();
    EXPECT_EQ(CountOf(Ends("serve")), 1U);
}

TEST_F(DoorHeadersTest, ForWhomARequestIsIsInEachOfItsLinesAndInNoOther) {
    Headers headers;
    {
        const Scope call("call");
        Inject(headers);
    }
    const std::string user = "ada";
    {
        const Scope serve(Extract(headers,
                                  {{"user", user},
                                   {"req-desc", "GET /prices"},
                                   {"rid", 17},
                                   {"sid", ""},
                                   {"tid", 4},
                                   {"price", 5}}),
                          "serve");
        OnAnotherThread([from = Handoff()] { const Scope lookup(from, "lookup"); });
    }
    { const Scope serve(Extract(headers), "other"); }

    for (const auto& matcher : {Begins("serve"), Ends("serve"), Begins("lookup"), Ends("lookup")}) {
        EXPECT_THAT(Events(),
                    Contains(AllOf(matcher, HasUser("ada"), HasRequest("17"), HasSession("-"))));
    }
    EXPECT_EQ(ActivityField(Begins("lookup"), "root"), ActivityField(Ends("serve"), "root"));
    EXPECT_THAT(Events(), Contains(AllOf(Ends("other"), HasUser("-"))));
}

TEST_F(DoorHeadersTest, WithoutHeadersARequestStillHasItsAttributes) {
    {
        Activity serve(Extract(Headers(), {{"user", "bob"}, {"req-desc", "load"}}), "serve");
        const Scope part(serve.GetHandoff(), "part");
    }

    EXPECT_THAT(
        Events(),
        Contains(AllOf(Begins("serve"), HasUser("bob"), HasActivityField("req-desc", "load"))));
    EXPECT_THAT(Events(), Contains(AllOf(Ends("part"), HasUser("bob"))));
}

TEST_F(DoorHeadersTest, ARequestIsMeasuredAndEndsAsOtherScopesDo) {
    {
        Scope serve(Extract(Headers{{"traceparent", foreignParent}}), "serve", {{"path", "/"}});
        serve.Fail("not found");
    }

    EXPECT_THAT(Events(), Contains(AllOf(Ends("serve"), HasActivityField("rk", "not found"))));
}

}  // namespace
}  // namespace tarn::test
