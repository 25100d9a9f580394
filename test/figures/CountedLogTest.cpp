#include "CapturingLog.h"
#include "CapturingSink.h"
#include "TarnTest.h"
#include "TemporaryFolder.h"

#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/Context.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

// A program whose new and delete are counted, and whose log is written where events are delivered:
// what becomes of a line is no part of the work that is measured.
namespace {

using tarn::ActivityScope;

/// Keeps the events, and writes them to a file as well.
class KeptAndWritten : public tarn::test::CapturingLog {
public:
    explicit KeptAndWritten(std::shared_ptr<TLog::LogBackEnd> file) : m_file(std::move(file)) {}

    void Write(TLog::Severity severity, const TLog::Event& event) override {
        CapturingLog::Write(severity, event);
        m_file->Write(severity, event);
    }

    void WriteMessage(TLog::Severity severity, const TString& text) override {
        CapturingLog::WriteMessage(severity, text);
        m_file->WriteMessage(severity, text);
    }

private:
    const std::shared_ptr<TLog::LogBackEnd> m_file;
};

class CountedLogTest : public tarn::test::TarnTest {
protected:
    using Figures = std::map<std::string, double>;

    void SetUp() override {
        OptTarn::SetIsTarnEnabled(true);
        OptTarn::SetIsTarnPlatforms(true);
        OptTarn::SetIsUnitTest(true);
        corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
        const uint64 root = Metrics::Context::Create(true);
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
        m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingAll);
        m_monitor->Register(true);
        m_context.emplace(0, root);
        m_context->OpenScope();
    }

    void TearDown() override {
        m_context.reset();
        m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingOff);
        m_monitor->Unregister();
    }

    static void WorkWithLogs(int logs) {
        const ActivityScope outer("outer");
        for (int i = 0; i < 50; ++i) {
            ActivityScope inner("inner");
            for (int log = 0; log < logs; ++log) {
                inner.Log({{"step", log}, {"state", "going on as it should, and has been"}});
            }
            TLog::Logger::Get().LogMessage(TLog::Info, TString(u"a line of the host's"));
        }
        constexpr std::size_t bytes = 200'000;
        TFree(TMalloc(bytes));
    }

    static const TLog::Object& ObjectIn(const TLog::Object& object, const char16_t* name) {
        return dynamic_cast<const TLog::Object&>(*object.GetFields().at(TString(name)));
    }

    /// What the end of the outer scope says of its memory, with `log` in place.
    static Figures FiguresOfOuter(const std::shared_ptr<tarn::test::CapturingLog>& log, int logs) {
        TLog::ReplaceBackEnd(log);
        WorkWithLogs(logs);
        Figures figures;
        for (const auto& [severity, event] : log->Events()) {
            if (event.GetName() == TString(u"end-outer")) {
                const auto& activity =
                    dynamic_cast<const TLog::Object&>(*event.GetActivityInfo()->GetActivity());
                for (const char16_t* group : {u"alloc", u"free"}) {
                    const TLog::Object& fields = ObjectIn(ObjectIn(activity, u"res"), group);
                    for (const auto& [name, value] : fields.GetFields()) {
                        const auto& figure = dynamic_cast<const TLog::Literal&>(*value);
                        figures[name.ToUtf8()] =
                            figure.GetDouble() + static_cast<double>(figure.GetInt());
                    }
                }
            }
        }
        return figures;
    }

    const tarn::test::TemporaryFolder m_folder;

private:
    RefCntPtr<MetricsMonitor> m_monitor;
    std::optional<Metrics::Context> m_context;
};

TEST_F(CountedLogTest, FiguresAreTheSameWhetherLinesAreWrittenOrDropped) {
    for (const int logs : {0, 1, 20}) {
        WorkWithLogs(logs);  // what is made once for a thread is made now
        const auto file = std::make_shared<KeptAndWritten>(
            TLog::MakeJsonFileBackEnd(m_folder.PathOf("log" + std::to_string(logs))));

        const Figures dropped = FiguresOfOuter(std::make_shared<tarn::test::CapturingLog>(), logs);
        const Figures written = FiguresOfOuter(file, logs);

        EXPECT_GE(dropped.at("apeak"), 200'000) << logs;
        EXPECT_EQ(written.at("ani"), dropped.at("ani")) << logs;
        EXPECT_EQ(written.at("dni"), dropped.at("dni")) << logs;
        // The allocator may give the same work blocks that are a little larger or smaller.
        constexpr double tolerance = 200;
        for (const char* bytes : {"ai", "di", "apeak"}) {
            EXPECT_NEAR(written.at(bytes), dropped.at(bytes), tolerance) << bytes << ' ' << logs;
        }
    }
}

}  // namespace
