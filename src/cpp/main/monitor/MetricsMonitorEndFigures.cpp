// Figures of a scope that ends, and what it passes on to the scope that sponsored it.
#include "ActivityTokenText.h"
#include "LogicAssert.h"
#include "MonitorRecords.h"
#include "NeverDestroyed.h"
#include "ScopeStateDump.h"
#include "ValueText.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TFormatString.h"

namespace {

using tarn::AddFigures;
using tarn::ResourceFigure;
using tarn::ResourceFigures;
using DumpType = MetricsMonitor::ScopeState::DumpType;

constexpr const char* sourceFile = "src/cpp/main/MetricsMonitor";

/// In whole milliseconds, what is below is cut off.
double SecondsBetween(int64 start, int64 end) {
    const uint64 nanoseconds = static_cast<uint64>(end) - static_cast<uint64>(start);
    return static_cast<double>(nanoseconds / 1'000'000) / 1000.0;
}

/// The child ran on another thread: the parent measured nothing of it.
void FoldFromOtherThread(ResourceFigure& parent, const ResourceFigure& child, bool transparent) {
    parent.otherThreads = AddFigures(parent.otherThreads, child.Inclusive());
    if (transparent) {
        parent.exclusive = AddFigures(parent.exclusive, child.exclusive);
    }
}

/// The child ran on the parent's thread. A parent that measures has measured the child as well,
/// so the child's share leaves the parent's exclusive figure, unless the child is transparent. A
/// parent that measures nothing sums up its children instead.
void FoldFromSameThread(ResourceFigure& parent,
                        const ResourceFigure& child,
                        bool parentMeasures,
                        bool transparent) {
    parent.otherThreads = AddFigures(parent.otherThreads, child.otherThreads);
    if (!parentMeasures) {
        parent.sameThread = AddFigures(parent.sameThread, child.sameThread);
        return;
    }
    parent.exclusive = tarn::SubtractFigures(parent.exclusive, child.sameThread);
    if (transparent) {
        parent.exclusive = AddFigures(parent.exclusive, child.exclusive);
    }
}

void DumpFolding(const MetricsMonitor::ScopeState& child,
                 const MetricsMonitor::ScopeState& parent) {
    if (!tarn::AreDumpsWanted()) {
        return;
    }
    const auto reason = [&child](const char16_t* format) {
        return TFormatString(format)
            .Arg(child.name)
            .Arg(child.activityId.ToString(TUUIDFormatOption::UpperHyphenated))
            .Arg(child.threadId, 0, 16)
            .ToString();
    };
    tarn::WriteScopeStateDump(
        parent, reason(u"Added memory from %1 (%2) at tid %3"), DumpType::Memory);
    tarn::WriteScopeStateDump(parent, reason(u"Added cpu from %1 (%2) at tid %3"), DumpType::Cpu);
}

/// A request answers for its sponsees: their failures become its own.
void PassResultOn(const TString& childResult, MetricsMonitor::ScopeState& parent) {
    const tarn::TokenStrings& tokens = tarn::Tokens();
    if (childResult == tokens.earlyTerminationAttr) {
        ++parent.sponseeEarlyTerminations;
    } else if (childResult != tokens.resultOk) {
        ++parent.sponseeErrors;
    }
    if (parent.name != tokens.requestScopeName) {
        return;
    }
    if (parent.sponseeErrors > 0) {
        parent.result = tokens.errorAttr;
    } else if (parent.sponseeEarlyTerminations > 0) {
        parent.result = tokens.earlyTerminationAttr;
    } else {
        return;
    }
    // Of several pairs of one name the last one counts: what is the last already is not said again
    // with every sponsee that ends from then on.
    static const tarn::NeverDestroyed<TString> message(u"detected in one or more sponsees");
    if (parent.resultPairs.empty() || parent.resultPairs.back().first != tokens.messageAttr ||
        parent.resultPairs.back().second != message.Get()) {
        parent.resultPairs.emplace_back(tokens.messageAttr, message.Get());
    }
}

}  // namespace

void MetricsMonitor::AddEndActivitySpecificNameValues(ScopeState& state,
                                                      uint64 /*scopeId*/,
                                                      const MetricsTimeInfo& end) {
    state.elapsed = SecondsBetween(state.openTime.time, end.time);
    state.threadIds.Insert(state.threadId);
    if (ScopeState* const parent = m_records->FindScope(FindOpenSponsor(state, true))) {
        if (parent != &state) {
            parent->threadIds.Insert(state.threadIds);
        }
        FoldIntoParent(state, *parent);
        PassResultOn(TString(state.result), *parent);
    }
    state.exclusive = state.elapsed - state.childrenTime;
}

void MetricsMonitor::NotifyFinished(const ScopeState& state,
                                    const MetricsTimeInfo& end,
                                    tarn::IFinishedActivityListener& listener) {
    using Outcome = tarn::FinishedActivity::Outcome;
    const tarn::TokenStrings& tokens = tarn::Tokens();
    Outcome outcome = Outcome::Failed;
    if (state.result == tokens.resultOk) {
        outcome = Outcome::Ok;
    } else if (state.result == tokens.earlyTerminationAttr) {
        outcome = Outcome::EarlyTermination;
    }
    const tarn::ResourceFigures& figures = state.resources;
    listener.OnFinished({state.name,
                         outcome,
                         tarn::SubtractFigures(end.time, state.openTime.time),
                         figures.userTime.exclusive,
                         figures.kernelTime.exclusive,
                         figures.allocatedBytes.exclusive,
                         figures.allocationCount.exclusive});
}

void MetricsMonitor::FoldIntoParent(const ScopeState& child, ScopeState& parent) {
    if (parent.scopeId == child.scopeId) {
        return;
    }
    const bool sameThread = parent.threadId == child.threadId;
    if (sameThread) {
        parent.childrenTime += child.elapsed;
    }
    for (const auto figure : ResourceFigures::folded) {
        if (sameThread) {
            FoldFromSameThread(parent.resources.*figure,
                               child.resources.*figure,
                               !parent.untrackedOrRequest,
                               child.transparent);
        } else {
            FoldFromOtherThread(
                parent.resources.*figure, child.resources.*figure, child.transparent);
        }
    }
    DumpFolding(child, parent);
}

void MetricsMonitor::OnMemoryCpuValuePairs(ScopeState& state,
                                           Metrics::PairSpan pairs,
                                           DumpType dumpType) {
    ResourceFigures& figures = state.resources;
    for (const auto& [name, value] : pairs) {
        if (!tarn::IsText(name)) {
            tarn::RaiseLogicAssert(sourceFile,
                                   1187,
                                   "nameType == Metrics::MetricsValue::MV_Utf16String || nameType "
                                   "== Metrics::MetricsValue::MV_Utf8String",
                                   0x6D0B23C8);
        }
        const int64 amount = tarn::IntegerOf(value);
        switch (m_records->names.Read(name).figure) {
            case tarn::FigureName::Allocated:
                figures.allocatedBytes.AddMeasured(amount);
                break;
            case tarn::FigureName::AllocatedCount:
                figures.allocationCount.AddMeasured(amount);
                break;
            case tarn::FigureName::AllocatedPeak:
                figures.allocatedPeak = amount;
                break;
            case tarn::FigureName::Deallocated:
                figures.deallocatedBytes.AddMeasured(amount);
                break;
            case tarn::FigureName::DeallocatedCount:
                figures.deallocationCount.AddMeasured(amount);
                break;
            case tarn::FigureName::UserTime:
                figures.userTime.AddMeasured(amount);
                break;
            case tarn::FigureName::KernelTime:
                figures.kernelTime.AddMeasured(amount);
                break;
            case tarn::FigureName::Unknown:
                break;
        }
    }
    if (tarn::AreDumpsWanted()) {
        tarn::WriteScopeStateDump(state,
                                  dumpType == DumpType::Memory ? u"Added memory from ActivityScope"
                                                               : u"Added cpu from ActivityScope",
                                  dumpType);
    }
}
