#include "commands/Input.h"

#include <ostream>

namespace tarnview {

Input::Input(const InputOptions& options, Context& context)
    : m_files(FilesToRead(options.files, options.addsRotated)),
      m_problems(context.err),
      m_muted(context.err, 0),
      m_progress(context.err, context.terminal.hasProgress, TotalSize(m_files)),
      m_scanner(m_files, m_problems, m_progress) {
    m_problems.SetBeforeOutput([this] { m_progress.Clear(); });
}

void Input::Finish() {
    m_progress.Clear();
    m_problems.PrintRest();
}

}  // namespace tarnview
