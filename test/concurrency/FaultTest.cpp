#include "FaultTest.h"

#include "AllocationCounter.h"
#include "EventLine.h"
#include "KnownIds.h"
#include "Matchers.h"

#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"

#include <chrono>
#include <utility>

namespace tarn::test {
namespace {

constexpr std::chrono::seconds timeout{30};

std::string TextOf(const TLog::Event& event, Table table, const std::string& field) {
    const auto value = Field(event, table, field);
    return value ? value->Text() : "";
}

}  // namespace

FaultySink::FaultySink(std::shared_ptr<CapturedEvents> events, Fault fault)
    : m_events(std::move(events)),
      m_fault(std::move(fault)) {}

FaultySink::~FaultySink() = default;

void FaultySink::Log(const TLog::Event& event) {
    if (m_fault) {
        m_fault(event);
    }
    {
        const UnfailingAllocations unfailing;  // of the test itself
        EXPECT_EQ(DifferenceOfLine(TLog::Info, event), "");
    }
    m_events->push_back(event);
}

FaultTest::FaultTest() {
    OptTarn::SetIsTarnEnabled(true);
}

FaultTest::~FaultTest() {
    Deliver();
    if (m_monitor) {
        m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingOff);
        m_monitor->Unregister();
    }
    EXPECT_TRUE(Metrics::Shutdown(timeout));
    Metrics::SetDelivery({});
}

void FaultTest::Start(Metrics::DeliveryMode mode, FaultySink::Fault fault) {
    Metrics::SetDelivery({.mode = mode});
    const uint64 root = Metrics::Context::Create(true);
    m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
    m_monitor->EnableTest(new FaultySink(m_lines, std::move(fault)), new KnownIds);
    m_monitor->Register(true);
    m_counters.contextsCreated = 0;
}

void FaultTest::Deliver() {
    EXPECT_TRUE(Metrics::Flush(timeout)) << "something hangs";
}

LoggedLines FaultTest::Lines(const std::string& scopeName) const {
    LoggedLines lines;
    for (const TLog::Event& event : *m_lines) {
        const std::string name = event.GetName().ToUtf8();
        if (name == "begin-" + scopeName) {
            ++lines.begins;
        } else if (name == "end-" + scopeName) {
            ++lines.ends;
            lines.elapsed = TextOf(event, Table::Activity, "elapsed");
        } else {
            continue;
        }
        lines.id = TextOf(event, Table::Activity, "id");
        lines.sponsor = TextOf(event, Table::Activity, "sponsor");
        lines.layer.reset();
        if (const auto layer = Field(event, Table::Attributes, "layer")) {
            lines.layer = layer->Text();
        }
    }
    return lines;
}

void FaultTest::ExpectNothingOpen() const {
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(m_monitor->GetNumberOpenContexts(), 1U) << "the monitor's own root";
    EXPECT_EQ(m_counters.scopesOpened, m_counters.scopesClosed);
    EXPECT_EQ(m_counters.contextsCreated, m_counters.contextsClosed);
    EXPECT_EQ(m_counters.requestContextsCreated, m_counters.requestContextsClosed);
}

}  // namespace tarn::test
