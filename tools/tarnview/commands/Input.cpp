#include "commands/Input.h"

#include "output/Units.h"
#ifdef TARNVIEW_HAS_NETWORK
#include "engine/EngineSource.h"
#endif

#include <ostream>
#include <sys/stat.h>

namespace tarnview {

namespace {

bool IsSameFile(const std::string& path, const std::string& other) {
    struct stat first {};

    struct stat second {};

    return stat(path.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           S_ISREG(first.st_mode) && first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

Input::Input(const InputOptions& options, Context& context)
    : m_files(FilesToRead(options.files, options.addsRotated)),
      m_hosts(m_files, options.hosts),
      m_context(context),
      m_problems(context.err),
      m_muted(context.err, 0),
      m_progress(context.err, context.terminal.hasProgress, TotalSize(m_files)),
      m_scanner(m_files, m_problems, [this](std::uint64_t bytes) { m_progress.Update(bytes); }) {
    m_scanner.UseHosts(m_hosts);
    m_problems.SetBeforeOutput([this] { m_progress.Clear(); });
#ifdef TARNVIEW_HAS_NETWORK
    if (!options.from.empty()) {
        m_source = OpenEngine(options.from);
    }
#endif
    for (const std::string& file : m_files) {
        if (IsSameFile(file, context.outputPath)) {
            throw CommandLineError("--output: " + context.outputPath + " is read as well");
        }
    }
}

void Input::AllowAnotherPass() {
    m_scanner.AllowAnotherPass();
    m_progress.ExpectAnotherPass();
}

void Input::EndPass() {
    m_isFirstPass = false;
    if (m_source == nullptr) {
        m_context.times.base = m_scanner.FirstTime();
    } else if (m_context.times.kind == TimeStyle::Kind::Relative && m_context.times.base == 0) {
        m_context.times.base = m_source->FirstTime();
    }
    m_progress.Clear();
}

// What a system that counts in ticks of the scheduler says about something short is 0 or a tick.
void Input::Look(const Activity& activity) {
    const bool isLeaf = activity.childrenTime == 0;
    if (!m_isFirstPass || !activity.hasEnd || !activity.figures.hasCpu || !isLeaf) {
        return;
    }
    constexpr double tolerance = 1'000;  // microseconds
    const double cpu = activity.figures.CpuExclusive();
    const bool isCoarse = cpu == 0 || cpu > static_cast<double>(activity.Duration()) + tolerance;
    ++m_leaves;
    m_coarseLeaves += isCoarse ? 1U : 0U;
}

int Input::FinishQuietly() {
    m_progress.Clear();
    for (const std::string& file : m_scanner.FilesWithoutALog()) {
        m_context.err << "tarnview: " << OnOneLine(file)
                      << ": no line of this file is a log line\n";
    }
    for (const std::string& log : m_hosts.Nameless()) {
        m_context.err << "tarnview: " << OnOneLine(log)
                      << " does not say of which host it is; --host NAME=LOG does\n";
    }
    if (const auto shared = m_scanner.SharedProcess()) {
        m_context.err << "tarnview: process " << ProcessName(shared->process) << " is in "
                      << OnOneLine(shared->log) << " and " << OnOneLine(shared->other)
                      << " at the same time; if these are of two hosts, --host NAME=LOG tells them "
                         "apart\n";
    }
    return m_scanner.FilesWithoutALog().empty() ? exitSuccess : exitInputOutput;
}

int Input::Finish() {
    constexpr std::uint64_t fewLeaves = 50;
    const int status = FinishQuietly();
    if (const std::string summary = m_problems.Summary(); !summary.empty()) {
        m_context.err << "tarnview: " << summary << "; the answer may be incomplete\n";
    }
    if (m_leaves >= fewLeaves && 2 * m_coarseLeaves > m_leaves) {
        m_context.err
            << "tarnview: the processor time of most activities is 0 or exceeds their elapsed "
               "time: the system counts it in ticks, and only sums of many mean something\n";
    }
    return status;
}

}  // namespace tarnview
