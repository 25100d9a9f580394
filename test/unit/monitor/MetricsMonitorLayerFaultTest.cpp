// Layers of context attributes that could not be added: their removals, which come all the same,
// must not take away others.
#include "AllocationCounter.h"
#include "MonitorTest.h"

#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::MetricsEvent;
using tarn::test::EventBuilder;
using tarn::test::FailingAllocation;
using tarn::test::HasAttribute;
using tarn::test::HasExactlyAttributes;
using testing::AllOf;

class MetricsMonitorLayerFaultTest : public tarn::test::MonitorTest,
                                     public testing::WithParamInterface<const char*> {
protected:
    MetricsEvent Layer(const char* name, const char* value) {
        return EventBuilder::ContextPairs(rootContext, GetParam(), {{name, value}});
    }

    /// Texts that are alive: afterwards none is there to be recycled, and a new one needs memory.
    static std::vector<TString> UseUpRecycledTexts() {
        std::vector<TString> texts;
        for (int i = 0; i < 5000; ++i) {
            texts.emplace_back(std::string("text ") + std::to_string(i));
        }
        return texts;
    }

    void RemoveLayer() { Send(EventBuilder::PostClose(rootContext)); }

    /// Sends an event whose handling finds no memory for one allocation. Whether it failed.
    bool FailsToSend(const MetricsEvent& event, uint64 number) {
        const FailingAllocation failing(number);
        try {
            Send(event);
        } catch (const std::bad_alloc&) {
            return true;
        }
        return false;
    }
};

TEST_P(MetricsMonitorLayerFaultTest, TheRemovalOfALayerThatFoundNoMemoryTakesNothingAway) {
    Send(Layer("known", "before"));
    RemoveLayer();
    const MetricsEvent inner = Layer("known", "inner");

    uint64 failures = 0;
    for (;; ++failures) {
        SCOPED_TRACE("allocation " + std::to_string(failures));
        Send(Layer("tenant", "blue"));

        const bool failed = FailsToSend(inner, failures);
        RemoveLayer();

        Open(7, "query");
        EXPECT_THAT(
            LastEvent(),
            AllOf(HasAttribute("tenant", "blue"), HasExactlyAttributes({"tenant", "vw", "wb"})));
        Close(7);
        RemoveLayer();
        Open(8, "query");
        EXPECT_THAT(LastEvent(), HasExactlyAttributes({"vw", "wb"}));
        Close(8);
        if (!failed) {
            break;
        }
    }

    EXPECT_GE(failures, 1U) << "a layer is made without an allocation";
}

TEST_P(MetricsMonitorLayerFaultTest, SoItIsIfEvenTheNameOfTheListCannotBeRead) {
    Send(EventBuilder::ContextPairs(
        rootContext, TString(std::string(GetParam())), {{"tenant", "blue"}}));
    const MetricsEvent inner = Layer("known", "inner");
    const std::vector<TString> texts = UseUpRecycledTexts();

    uint64 failures = 0;
    for (; FailsToSend(inner, failures); ++failures) {
        RemoveLayer();
        Open(7, "query");
        EXPECT_THAT(LastEvent(), HasExactlyAttributes({"tenant", "vw", "wb"})) << failures;
        Close(7);
    }

    EXPECT_GE(failures, 2U);
}

TEST_F(MetricsMonitorLayerFaultTest, AListForTheRequestThatCannotBeReadLeavesTheLayersAlone) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    const std::vector<TString> texts = UseUpRecycledTexts();
    ASSERT_TRUE(
        FailsToSend(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", "ada"}}), 0));

    RemoveLayer();

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasExactlyAttributes({"vw", "wb"}));
}

TEST_P(MetricsMonitorLayerFaultTest, LayersThatCameLaterAreRemovedBeforeTheMissingOne) {
    Send(Layer("known", "before"));
    RemoveLayer();
    Send(Layer("tenant", "blue"));
    const MetricsEvent missing = Layer("known", "missing");
    ASSERT_TRUE(FailsToSend(missing, 0));
    ASSERT_TRUE(FailsToSend(missing, 0));

    Send(Layer("shard", "three"));
    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasExactlyAttributes({"shard", "tenant", "vw", "wb"}));

    for (int removals = 0; removals < 3; ++removals) {
        RemoveLayer();
        Open(8, "query");
        EXPECT_THAT(LastEvent(), HasExactlyAttributes({"tenant", "vw", "wb"})) << removals;
        Close(8);
    }
    RemoveLayer();
    Close(7);
    EXPECT_THAT(LastEvent(), HasExactlyAttributes({"vw", "wb"}));
}

INSTANTIATE_TEST_SUITE_P(,
                         MetricsMonitorLayerFaultTest,
                         testing::Values("ctx", "mctx"),
                         [](const auto& layer) { return std::string(layer.param); });

}  // namespace
