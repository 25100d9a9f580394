#pragma once

#include "commands/Context.h"
#include "output/Progress.h"
#include "read/LogScanner.h"
#include "read/Problems.h"

namespace tarnview {

/// The input of a command with all that goes with it: what is wrong is named on the error stream,
/// a progress bar stands there if the terminal allows.
class Input {
public:
    Input(const InputOptions& options, Context& context);

    /// At the end: how much was wrong in all.
    void Finish();

    LogScanner& Scanner() { return m_scanner; }

    Problems& Findings() { return m_problems; }

    /// Where what a pass over the input finds belongs: nowhere after the first one.
    Problems& FindingsOfThisPass() { return m_isFirstPass ? m_problems : m_muted; }

    void EndPass() { m_isFirstPass = false; }

private:
    std::vector<std::string> m_files;
    Problems m_problems;
    Problems m_muted;
    bool m_isFirstPass = true;
    Progress m_progress;
    LogScanner m_scanner;
};

}  // namespace tarnview
