#pragma once

#include "activity/Activity.h"
#include "commands/Context.h"
#include "model/ActivitySource.h"
#include "output/Progress.h"
#include "read/LogScanner.h"
#include "read/Problems.h"

#include <cstdint>
#include <memory>

namespace tarnview {

/// The input of a command with all that goes with it: what is wrong is named on the error stream,
/// with a progress bar if that is a terminal.
class Input {
public:
    Input(const InputOptions& options, Context& context);

    /// Reading begins anew after a pass; to be called before the first one, for each further pass.
    void AllowAnotherPass();

    /// At the end: says what of the hosts of the logs is not known, and in a line how much was
    /// wrong in all, and what follows from it. Returns what the program ends with: exitInputOutput
    /// if a file is no log, else exitSuccess.
    int Finish();

    /// The same for a command that says itself what was wrong.
    int FinishQuietly();

    /// Where the activities are if they are in no files; else null, and Scanner() reads the lines.
    ActivitySource* Source() const { return m_source.get(); }

    LogScanner& Scanner() { return m_scanner; }

    Problems& Findings() { return m_problems; }

    /// Where what a pass over the input finds belongs: nowhere after the first one.
    Problems& FindingsOfThisPass() { return m_isFirstPass ? m_problems : m_muted; }

    void EndPass();

    /// Looks at what was measured of an activity, for Finish().
    void Look(const Activity& activity);

private:
    std::vector<std::string> m_files;
    Hosts m_hosts;
    Context& m_context;
    Problems m_problems;
    Problems m_muted;
    bool m_isFirstPass = true;
    std::uint64_t m_leaves = 0;        // activities of which processor time was measured
    std::uint64_t m_coarseLeaves = 0;  // whose processor time cannot be right
    Progress m_progress;
    LogScanner m_scanner;
    std::unique_ptr<ActivitySource> m_source;
};

}  // namespace tarnview
