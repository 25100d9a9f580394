#include "TarnTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/ICarrier.h"
#include "tarn/OptTarn.h"

#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

constexpr const char* root = "6FEC1044-CACC-4642-A403-F751B5161C7D";

std::string TraceOf(const std::string& rootId) {
    return rootId + ":" + rootId + ":0";
}

class ActivityExtractionTest : public TarnTest {
protected:
    ActivityExtractionTest() { OptTarn::SetIsForegroundThreadContextEnabled(true); }

    /// Whether the headers were refused, and counted as such.
    bool IsRefused(const std::string& traceId,
                   const std::string& depth,
                   const ExtractionLimits& limits = {}) {
        const uint64 before = ActivityTracer::GetRefusedHeaders();
        const auto context = ActivityTracer::ExtractContext(traceId, depth, limits);
        const uint64 counted = ActivityTracer::GetRefusedHeaders() - before;
        EXPECT_EQ(counted, context.has_value() ? 0U : 1U) << traceId << " " << depth;
        return !context.has_value();
    }
};

class Headers : public ICarrier {
public:
    void Set(const TString& name, const TString& value) override {
        values[name.ToUtf8()] = value.ToUtf8();
    }

    std::map<std::string, std::string> values;
};

TEST_F(ActivityExtractionTest, WhatWasInjectedComesBackOneDeeperUnderTheSameRoot) {
    Headers headers;
    std::shared_ptr<ActivityContext> sender;
    {
        const ActivityScope outer("outer");
        const ActivityScope call("call");
        sender = call.GetActivityContext();
        ActivityTracer::injectContext(headers);
    }

    const auto received =
        ActivityTracer::ExtractContext(headers.values[ActivityTracer::traceIdHeader],
                                       headers.values[ActivityTracer::extraDepthHeader]);

    ASSERT_TRUE(received.has_value());
    EXPECT_TRUE(received->adopt);
    const ActivityContext& context = *received->parent;
    EXPECT_EQ(context.GetRootId(), sender->GetRootId());
    EXPECT_EQ(context.GetSponsorId(), sender->GetRootId()) << "the sender's own id does not travel";
    EXPECT_NE(context.GetActivityId(), sender->GetRootId());
    EXPECT_EQ(context.GetRequestId(), TString(u"-"));
    EXPECT_EQ(context.GetTraceDepth(), sender->GetTraceDepth() + 1);
    EXPECT_EQ(context.GetServiceDepth(), 1);
}

TEST_F(ActivityExtractionTest, AScopeThatTakesItOverHasItsIdsAndIsMeasured) {
    const auto received = ActivityTracer::ExtractContext(TraceOf(root), "4");
    ASSERT_TRUE(received.has_value());

    const ActivityScope serve(
        "serve", CustomContext(Metrics::NameValueList()), Traits(), {}, *received);

    EXPECT_EQ(serve.GetActivityContext()->GetRootId(), TString(root));
    EXPECT_EQ(serve.GetActivityContext()->GetActivityId(), received->parent->GetActivityId());
    EXPECT_EQ(serve.GetActivityContext()->GetTraceDepth(), 5);
    EXPECT_EQ(serve.GetTraits().type, TraceType::Normal);
}

TEST_F(ActivityExtractionTest, EachExtractionMakesAnActivityOfItsOwn) {
    const auto one = ActivityTracer::ExtractContext(TraceOf(root), "4");
    const auto other = ActivityTracer::ExtractContext(TraceOf(root), "4");

    ASSERT_TRUE(one && other);
    EXPECT_NE(one->parent->GetActivityId(), other->parent->GetActivityId());
}

TEST_F(ActivityExtractionTest, WithoutHeadersThereIsNothingToTakeOverAndNothingToRefuse) {
    const uint64 before = ActivityTracer::GetRefusedHeaders();

    EXPECT_FALSE(ActivityTracer::ExtractContext("", "").has_value());

    EXPECT_EQ(ActivityTracer::GetRefusedHeaders(), before);
}

TEST_F(ActivityExtractionTest, WhileForegroundContextsAreDisabledHeadersAreNotLookedAt) {
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    const uint64 before = ActivityTracer::GetRefusedHeaders();

    EXPECT_FALSE(ActivityTracer::ExtractContext(TraceOf(root), "4").has_value());
    EXPECT_FALSE(ActivityTracer::ExtractContext("rubbish", "4").has_value());

    EXPECT_EQ(ActivityTracer::GetRefusedHeaders(), before);
}

TEST_F(ActivityExtractionTest, ATraceOfAnotherFormIsRefused) {
    const std::string id = root;
    const std::vector<std::string> traces = {
        "",
        ":",
        "::",
        "::0",
        ":" + id + ":0",
        id,
        id + ":",
        id + ":" + id,
        id + ":" + id + ":",
        id + ":" + id + ":1",
        id + ":" + id + ":00",
        id + ":" + id + ":0:",
        id + ":" + id + ":0 ",
        " " + id + ":" + id + ":0",
        id + "::0",
        id + ":other:0",
        id + ":" + id.substr(1) + ":0",
        id + ":" + id + "X:0",
        TraceOf("two words"),
        TraceOf("line\nbreak"),
        TraceOf("line\r\nSet-Cookie"),
        TraceOf("tab\t"),
        TraceOf(std::string("nul\0inside", 10)),
        TraceOf("delete\x7F"),
        TraceOf("gr\xC3\xBC\xC3\x9F"
                "e"),
        TraceOf("\xFF\xFE"),
        std::string(3, '\0'),
    };
    for (const std::string& trace : traces) {
        EXPECT_TRUE(IsRefused(trace, "4")) << trace;
    }
}

TEST_F(ActivityExtractionTest, AnyVisibleIdIsTakenOver) {
    for (const std::string id :
         {"a", "0", "{x}", "\"quoted\"", "<script>", "%s%n", "../../x", "~!"}) {
        const auto received = ActivityTracer::ExtractContext(TraceOf(id), "0");

        ASSERT_TRUE(received.has_value()) << id;
        EXPECT_EQ(received->parent->GetRootId().ToUtf8(), id);
    }
}

TEST_F(ActivityExtractionTest, ADepthThatIsNoDecimalNumberWithoutASignIsRefused) {
    for (const std::string depth : {"",
                                    " ",
                                    " 4",
                                    "4 ",
                                    "-1",
                                    "-0",
                                    "+4",
                                    "4.0",
                                    "4e1",
                                    "0x4",
                                    "four",
                                    "4\n",
                                    "2147483648",
                                    "4294967296",
                                    "18446744073709551616",
                                    "99999999999999999999999999999999999999"}) {
        EXPECT_TRUE(IsRefused(TraceOf(root), depth)) << depth;
    }
    EXPECT_TRUE(IsRefused(TraceOf(root), std::string("4\0", 2)));
    EXPECT_FALSE(IsRefused(TraceOf(root), "0"));
    EXPECT_FALSE(IsRefused(TraceOf(root), "10"));
}

TEST_F(ActivityExtractionTest, WhatIsOverALimitIsRefused) {
    const ExtractionLimits defaults;
    EXPECT_FALSE(IsRefused(TraceOf(std::string(defaults.idCharacters, 'x')), "0"));
    EXPECT_TRUE(IsRefused(TraceOf(std::string(defaults.idCharacters + 1, 'x')), "0"));
    EXPECT_TRUE(IsRefused(TraceOf(std::string(std::size_t{1} << 20, 'x')), "0"));
    EXPECT_FALSE(IsRefused(TraceOf(root), std::to_string(defaults.depth)));
    EXPECT_TRUE(IsRefused(TraceOf(root), std::to_string(defaults.depth + 1)));
    EXPECT_TRUE(IsRefused(TraceOf(root), std::string(defaults.headerBytes, '0') + "4"));
}

TEST_F(ActivityExtractionTest, TheLimitsAreTheCallers) {
    EXPECT_TRUE(IsRefused(TraceOf("12345678"), "4", {.headerBytes = 18}));
    EXPECT_FALSE(IsRefused(TraceOf("12345678"), "4", {.headerBytes = 19}));
    EXPECT_TRUE(IsRefused(TraceOf("12345678"), "4", {.idCharacters = 7}));
    EXPECT_FALSE(IsRefused(TraceOf("12345678"), "4", {.idCharacters = 8}));
    EXPECT_TRUE(IsRefused(TraceOf(root), "4", {.depth = 3}));
    EXPECT_TRUE(IsRefused(TraceOf(root), "0", {.depth = -1}));
}

TEST_F(ActivityExtractionTest, NoLimitLetsADepthWrap) {
    const ExtractionLimits none{.depth = std::numeric_limits<int>::max()};

    EXPECT_TRUE(IsRefused(TraceOf(root), "2147483647", none));
    const auto deepest = ActivityTracer::ExtractContext(TraceOf(root), "2147483646", none);
    ASSERT_TRUE(deepest.has_value());
    EXPECT_EQ(deepest->parent->GetTraceDepth(), std::numeric_limits<int>::max());
}

}  // namespace
}  // namespace tarn::test
