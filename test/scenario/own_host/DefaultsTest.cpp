#include "ScenarioHost.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::MetricsEventType;

/// Keeps the types of the events of scopes.
class TypesOfEvents : public Metrics::IMetricsListener {
public:
    explicit TypesOfEvents(std::shared_ptr<std::vector<MetricsEventType>> types)
        : m_types(std::move(types)) {}

    void OnMetricsEvent(const Metrics::MetricsEvent& event) override {
        if (event.id != 0 && event.type > MetricsEventType::CloseContext) {
            m_types->push_back(event.type);
        }
    }

private:
    std::shared_ptr<std::vector<MetricsEventType>> m_types;
};

/// What a scope says at its end, with the default of `Scope::Finish`.
class DefaultsTest : public tarn::test::ScenarioHost {
protected:
    ~DefaultsTest() override { Metrics::MetricsManager::GetInstance().RemoveConsumer(m_listener); }

    void SetUp() override {
        Metrics::MetricsManager::GetInstance().AddConsumer(m_listener, Metrics::flagTracing, false);
        m_context.OpenScope();
        m_scope.OpenImpl("work");
    }

    void Finish() {
        const Metrics::PairView pairs[] = {{"a", 1}};
        m_scope.Finish({{MetricsEventType::NameValue, "tid", 1},
                        {MetricsEventType::NameValuePairs, "list", Metrics::PairSpan(pairs, 1)}});
    }

    const std::vector<MetricsEventType>& Types() const { return *m_types; }

    Metrics::Context m_context{0, Metrics::Context::Create(true)};
    Metrics::Scope m_scope{Metrics::flagTracing};

private:
    std::shared_ptr<std::vector<MetricsEventType>> m_types =
        std::make_shared<std::vector<MetricsEventType>>();
    RefCntPtr<Metrics::IMetricsListener> m_listener{new TypesOfEvents(m_types)};
};

TEST_F(DefaultsTest, AScopeSaysWhatIsLeftAndEnds) {
    Finish();

    EXPECT_FALSE(m_scope.IsOpen());
    EXPECT_THAT(Types(),
                testing::ElementsAre(MetricsEventType::OpenScope,
                                     MetricsEventType::NameValue,
                                     MetricsEventType::NameValuePairs,
                                     MetricsEventType::CloseScope));
}

TEST_F(DefaultsTest, AScopeEndsOnce) {
    Finish();
    Finish();

    EXPECT_EQ(Types().size(), 4U);
}

TEST_F(DefaultsTest, AnEventThatCannotBeEmittedIsLostAloneAndTheScopeEnds) {
    FailToEmit(1);
    Finish();

    EXPECT_FALSE(m_scope.IsOpen());
    EXPECT_THAT(Types(),
                testing::ElementsAre(MetricsEventType::OpenScope,
                                     MetricsEventType::NameValuePairs,
                                     MetricsEventType::CloseScope));
}

}  // namespace
