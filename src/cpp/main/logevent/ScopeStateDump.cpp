#include "ScopeStateDump.h"

#include "ActivityTokenText.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include "cvlcoreplatform/TLog.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using TLog::Literal;
using TLog::NameTable;

constexpr TLog::NonErrorSeverity severity(TLog::Info);

/// The first value of a name stays.
void Put(NameTable& table, const TString& name, std::shared_ptr<TLog::Value> value) {
    table.emplace(name, std::move(value));
}

void PutInt(NameTable& table, const TString& name, int64 value) {
    Put(table, name, Literal::Int(value));
}

void PutText(NameTable& table, const TString& name, const TString& text) {
    Put(table, name, Literal::String(text));
}

TString IdText(const TUUID& id) {
    return id.ToString(TUUIDFormatOption::UpperHyphenated);
}

void PutHead(NameTable& table, const MetricsMonitor::ScopeState& state, const TString& reason) {
    PutText(table, u"dump-reason", reason);
    PutInt(table, u"scopeId", static_cast<int64>(state.scopeId));
    PutText(table, Tokens().nameAttr, state.name);
    PutText(table, u"uuid", IdText(state.activityId));
    PutText(table, Tokens().tidAttr, TString::number(state.threadId, 16));
}

/// Queries may hold what must not get into a diagnostic log.
bool IsOmitted(const TString& attributeName) {
    return attributeName == u"query" || attributeName == u"query-trunc";
}

void PutScopeAttributes(NameTable& table, const MetricsMonitor::ScopeState& state) {
    NameTable attributes;
    for (const auto& [name, value] : state.attributes) {
        PutText(attributes,
                name,
                IsOmitted(name) ? TString(u"Intentionally Omitted")
                                : TarnMetricsUtils::MetricsValueToString(value));
    }
    Put(table, u"scopeAttributes", TLog::Object::Make(std::move(attributes)));
}

void PutSponsors(NameTable& table, const MetricsMonitor::ScopeState& state) {
    NameTable sponsors;
    const std::vector<uint64> sponsorIds = state.sponsorChain.GetIds();
    for (std::size_t index = 0; index < sponsorIds.size(); ++index) {
        PutInt(sponsors, TString::number(index), static_cast<int64>(sponsorIds[index]));
    }
    Put(table, u"sponsors", TLog::Object::Make(std::move(sponsors)));
}

void PutStartTime(NameTable& table, const MetricsMonitor::ScopeState& state) {
    NameTable start;
    PutInt(start, u"time", state.openTime.time);
    PutInt(start, u"seconds", static_cast<int64>(state.openTime.wallSeconds));
    PutInt(start, u"microseconds", state.openTime.wallMicros);
    Put(table, u"startTimeInfo", TLog::Object::Make(std::move(start)));
}

void PutWholeState(NameTable& table, const MetricsMonitor::ScopeState& state) {
    const TokenStrings& tokens = Tokens();
    PutInt(table, u"contextId", static_cast<int64>(state.contextId));
    PutScopeAttributes(table, state);
    PutText(table, tokens.rootAttr, IdText(state.requestActivityId));
    PutSponsors(table, state);
    PutInt(table, tokens.serviceDepthAttr, state.serviceDepth);
    PutInt(table, tokens.traceDepthAttr, state.traceDepth);
    PutStartTime(table, state);
    Put(table, tokens.elapsedAttr, Literal::Double(state.elapsed, 0));
    Put(table, tokens.exclusiveTimeAttr, Literal::Double(state.exclusive, 0));
    PutText(table, tokens.resultKeyAttr, state.result);
    for (const auto& [name, text] : state.resultPairs) {
        PutText(table, name, text);
    }
}

void PutMemory(NameTable& table, const MetricsMonitor::ScopeState& state) {
    const TokenStrings& tokens = Tokens();
    const ResourceFigures& figures = state.resources;
    NameTable memory;
    PutInt(memory, tokens.allocatedExclusiveAttr, figures.allocatedBytes.exclusive);
    PutInt(memory, tokens.allocatedCountExclusiveAttr, figures.allocationCount.exclusive);
    PutInt(memory, u"aiot", figures.allocatedBytes.otherThreads);
    PutInt(memory, u"aniot", figures.allocationCount.otherThreads);
    PutInt(memory, u"aist", figures.allocatedBytes.sameThread);
    PutInt(memory, u"anist", figures.allocationCount.sameThread);
    PutInt(memory, tokens.allocatedPeakAttr, figures.allocatedPeak);
    PutInt(memory, tokens.deallocatedExclusiveAttr, figures.deallocatedBytes.exclusive);
    PutInt(memory, tokens.deallocatedCountExclusiveAttr, figures.deallocationCount.exclusive);
    PutInt(memory, u"diot", figures.deallocatedBytes.otherThreads);
    PutInt(memory, u"dniot", figures.deallocationCount.otherThreads);
    PutInt(memory, u"dist", figures.deallocatedBytes.sameThread);
    PutInt(memory, u"dnist", figures.deallocationCount.sameThread);
    Put(table, u"memory", TLog::Object::Make(std::move(memory)));
    Put(table, u"transparent", Literal::Bool(state.transparent));
}

void PutCpuTime(NameTable& table, const MetricsMonitor::ScopeState& state) {
    const TokenStrings& tokens = Tokens();
    const ResourceFigures& figures = state.resources;
    NameTable cpuTime;
    PutInt(cpuTime, tokens.cpuTimeUserExclusiveAttr, figures.userTime.exclusive);
    PutInt(cpuTime, u"uist", figures.userTime.sameThread);
    PutInt(cpuTime, u"uidt", figures.userTime.otherThreads);
    PutInt(cpuTime, tokens.cpuTimeKernelExclusiveAttr, figures.kernelTime.exclusive);
    PutInt(cpuTime, u"kist", figures.kernelTime.sameThread);
    PutInt(cpuTime, u"kidt", figures.kernelTime.otherThreads);
    Put(table, u"cpuTime", TLog::Object::Make(std::move(cpuTime)));
}

}  // namespace

bool IsScopeStateDumpEnabled() {
    return TLog::Logger::Get().IsEnabled(severity);
}

bool AreDumpsWanted() {
    return OptTarn::GetShouldLogResourceTracking() && IsScopeStateDumpEnabled();
}

void WriteScopeStateDump(const MetricsMonitor::ScopeState& state,
                         const TString& reason,
                         MetricsMonitor::ScopeState::DumpType type) {
    if (!IsScopeStateDumpEnabled()) {
        return;
    }
    const bool full = type == MetricsMonitor::ScopeState::DumpType::Full;
    const bool memory = full || type == MetricsMonitor::ScopeState::DumpType::Memory;
    const bool cpuTime = memory || type == MetricsMonitor::ScopeState::DumpType::Cpu;

    NameTable table;
    PutHead(table, state, reason);
    if (full) {
        PutWholeState(table, state);
    }
    if (memory) {
        PutMemory(table, state);
    }
    if (cpuTime) {
        PutCpuTime(table, state);
    }
    TLog::Logger::Get().Log(
        severity, TLog::Event(TString(u"scope-state"), TLog::Object::Make(std::move(table))));
}

}  // namespace tarn
