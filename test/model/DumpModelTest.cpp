// Dumps of a scope's state against the model's. The monitor writes those about memory and processor
// time only, and streams make it do that; the full dump is for those who debug the monitor.
#include "AttributeGenerator.h"
#include "CapturingLog.h"
#include "Comparison.h"
#include "Model.h"
#include "MonitorRun.h"
#include "Random.h"
#include "ScopeState.h"
#include "ScopeStateDump.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace model {
namespace {

using LibraryState = MetricsMonitor::ScopeState;

TString ToString(const std::u16string& text) {
    return TString(std::u16string_view(text));
}

tarn::ResourceFigure ToLibrary(const folding::Figure& figure) {
    return {figure.exclusive, figure.sameThread, figure.otherThreads};
}

/// The same state as the library has it. The values of the attributes are `values`.
LibraryState ToLibrary(const ScopeState& state, const Metrics::NameValueList& values) {
    LibraryState made;
    made.scopeId = state.scopeId;
    made.name = ToString(state.name);
    made.activityId = TUUID(state.activityId);
    made.contextId = state.contextId;
    made.threadId = state.threadId;
    made.requestActivityId = TUUID(state.requestActivityId);
    for (const uint64 id : state.sponsorChain) {
        made.sponsorChain.Push(id);
    }
    made.traceDepth = state.traceDepth;
    made.serviceDepth = state.serviceDepth;
    made.transparent = state.transparent;
    made.openTime = {state.openTime.time, state.openTime.wallSeconds, state.openTime.wallMicros};
    for (const auto& [name, value] : values) {
        made.attributes.Set(ToString(TextOf(Value(name))), value);
    }
    made.result = ToString(state.result);
    for (const auto& [name, text] : state.resultPairs) {
        made.resultPairs.emplace_back(ToString(name), ToString(text));
    }
    made.elapsed = state.elapsed;
    made.exclusive = state.exclusiveTime;
    made.resources.allocatedBytes = ToLibrary(state.figures[folding::AllocatedBytes]);
    made.resources.allocationCount = ToLibrary(state.figures[folding::AllocationCount]);
    made.resources.deallocatedBytes = ToLibrary(state.figures[folding::ReleasedBytes]);
    made.resources.deallocationCount = ToLibrary(state.figures[folding::ReleaseCount]);
    made.resources.userTime = ToLibrary(state.figures[folding::ProgramTime]);
    made.resources.kernelTime = ToLibrary(state.figures[folding::KernelTime]);
    made.resources.allocatedPeak = state.allocatedPeak;
    return made;
}

/// Makes states of which nearly every field is another one than in any other state.
class StateGenerator {
public:
    explicit StateGenerator(uint64 seed) : m_random(seed), m_attributes(m_random, 3) {}

    std::pair<ScopeState, Metrics::NameValueList> Make() {
        ScopeState state;
        state.scopeId = AnyNumber();
        state.name = TextOf(Value(m_attributes.ScopeName()));
        state.activityId = IdAt(m_random.Below(1000), false);
        state.contextId = AnyNumber();
        state.threadId = AnyNumber();
        state.requestActivityId = IdAt(m_random.Below(1000), false);
        for (uint64 left = m_random.Below(15); left > 0; --left) {
            state.sponsorChain.push_back(AnyNumber());
        }
        state.traceDepth = static_cast<int32>(AnyNumber());
        state.serviceDepth = static_cast<int32>(AnyNumber());
        state.transparent = m_random.Percent(50);
        state.openTime = {static_cast<int64>(AnyNumber()),
                          AnyNumber(),
                          static_cast<uint32>(m_random.Below(1000000))};
        state.elapsed = static_cast<double>(m_random.Below(100000)) / 1000.0;
        state.exclusiveTime = static_cast<double>(m_random.Between(-5000, 5000)) / 1000.0;
        Metrics::NameValueList values = m_attributes.ScopePairs();
        for (const auto& [name, value] : values) {
            state.attributes[TextOf(Value(name))] = Value(value);
        }
        state.result = TextOf(Value(m_attributes.ScopeName()));
        for (const auto& [name, value] : m_attributes.ResultPairs()) {
            state.resultPairs.emplace_back(TextOf(Value(name)), TextOf(Value(value)));
        }
        if (m_random.Percent(30)) {
            // Names that the dump has itself, before and after the result.
            state.resultPairs.emplace_back(
                m_random.OneOf<const char16_t*>(
                    {u"memory", u"cpuTime", u"transparent", u"uuid", u"sponsors", u"elapsed"}),
                u"the result's own");
        }
        for (folding::Figure& figure : state.figures) {
            figure = {static_cast<int64>(AnyNumber()),
                      static_cast<int64>(AnyNumber()),
                      static_cast<int64>(AnyNumber())};
        }
        state.allocatedPeak = static_cast<int64>(AnyNumber());
        return {state, values};
    }

private:
    uint64 AnyNumber() {
        return m_random.Percent(80) ? m_random.Below(1000000)
                                    : m_random.OneOf({std::numeric_limits<uint64>::max(),
                                                      uint64{0},
                                                      uint64{0x8000000000000000}});
    }

    Random m_random;
    AttributeGenerator m_attributes;
};

class DumpModelTest : public testing::Test {
protected:
    std::optional<Difference> Compare(const ScopeState& state,
                                      const Metrics::NameValueList& values,
                                      DumpType type) {
        Observation expected;
        expected.journal.resize(1);
        expected.journal[0].kind = Entry::Kind::DiagnosticEvent;
        expected.journal[0].text = u"scope-state";
        expected.journal[0].body = DumpOf(state, u"why", type);

        m_log->Clear();
        tarn::WriteScopeStateDump(
            ToLibrary(state, values), u"why", static_cast<LibraryState::DumpType>(type));

        Observation actual;
        for (const auto& [severity, event] : m_log->Events()) {
            actual.journal.push_back(PlainEntry(event, severity));
        }
        return Comparison().FirstDifference(expected, actual);
    }

private:
    const tarn::test::LogCapture m_log;
};

TEST_F(DumpModelTest, AgreesOnDumpsOfEveryType) {
    StateGenerator states(20260201);
    std::size_t mostAttributes = 0;

    for (int i = 0; i < 1000 && !HasFailure(); ++i) {
        const auto [state, values] = states.Make();
        mostAttributes = std::max(mostAttributes, state.attributes.size());
        for (const DumpType type :
             {DumpType::Full, DumpType::Memory, DumpType::Cpu, DumpType{3}, DumpType{-1}}) {
            if (const auto difference = Compare(state, values, type)) {
                ADD_FAILURE() << "state " << i << ", type " << static_cast<int32>(type) << ", "
                              << difference->field << "\n  model:   " << difference->expected
                              << "\n  library: " << difference->actual;
            }
        }
    }

    EXPECT_GT(mostAttributes, 16U);
}

}  // namespace
}  // namespace model
