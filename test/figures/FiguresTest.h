#pragma once

#include "CapturingSink.h"
#include "LoggedScopes.h"
#include "Oracle.h"
#include "Script.h"
#include "ScriptRun.h"
#include "TarnTest.h"

#include "tarn/MetricsMonitor.h"

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace figures {

/// Base of the tests: a monitor on the bus whose log is collected, and a second thread.
class FiguresTest : public tarn::test::TarnTest {
protected:
    void SetUp() override;
    void TearDown() override;

    LoggedScopes RunAndReadLog(const Script& script, Blocks blocks = Blocks::FromTMalloc);

    /// What the log of the script that ran last has to say.
    Expectation WorkOutLast(const Script& script) const { return WorkOut(script, m_blockSizes); }

private:
    std::shared_ptr<tarn::test::CapturedEvents> m_events =
        std::make_shared<tarn::test::CapturedEvents>();
    RefCntPtr<MetricsMonitor> m_monitor;
    SecondThread m_second;
    std::vector<std::size_t> m_blockSizes;
};

}  // namespace figures
