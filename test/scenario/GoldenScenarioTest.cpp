#include "KnownIds.h"
#include "ScenarioHost.h"
#include "ScopeTree.h"
#include "Threads.h"

#include "tarn/ActivityScope.h"
#include "tarn/ContextAttributesUtils.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::ActivityScope;
using tarn::ContextAttributesUtils;
using tarn::CustomContext;
using tarn::TraceType;
using tarn::Traits;

// A clock that is stopped unless the scenario moves it.
constinit std::atomic<int64> s_microseconds{0};

int64 ReadStandingClock() noexcept {
    return s_microseconds.load(std::memory_order_relaxed);
}

void Pass(int64 microseconds) {
    s_microseconds.fetch_add(microseconds, std::memory_order_relaxed);
}

void AllocateAndFree(int allocations, int releases) {
    tarn::test::ScenarioHost::AllocateAndFree(allocations, releases);
}

/// The host's work: an import whose second half runs on another thread. The clock moves by odd
/// numbers of microseconds, so that cut-off milliseconds are seen.
class Import {
public:
    void Run() {
        Metrics::AttributeImpl("user", "ada", Metrics::flagTracing);
        Metrics::AttributeImpl(L"sid", L"s-1", Metrics::flagTracing);
        Metrics::AttributeImpl("site", "north", Metrics::flagTracing);
        Metrics::AttributeImpl("req-desc", "nightly import", Metrics::flagTracing);

        ActivityScope import(
            "import",
            {{"file", "gr\u00FC\u00DFe.csv"}, {"bytes", 12345}, {"dry", false}, {L"ratio", 0.5}});
        Pass(1'999);
        AllocateAndFree(3, 1);
        ContextAttributesUtils::Set({{"rid", "r-1"}, {"wb", "book"}, {"req-desc", "too late"}});

        Parse();
        Store();
        Index();
        import.Add({{"rows", 12},
                    {"rows", 13},
                    { L"text",
                      L"two\nlines, \"quoted\" \\ \U0001F600" }});
        Pass(1);
    }

    uint64 WorkersThread() const { return m_workersThread; }

private:
    static void Parse() {
        ActivityScope parse("parse");
        Pass(2'500);
        parse.Log({{"step", "header"}, {"columns", 4}});
        Pass(700);
        AllocateAndFree(2, 2);
        {
            // Not logged: what happens inside hangs under "parse".
            ActivityScope pass("pass", Traits(TraceType::Transparent));
            Pass(300);
            AllocateAndFree(1, 0);
            const ActivityScope lines("lines", {{"first", 1}});
            Pass(1'000);
        }
        parse.Log({{"step", "body"}, {"'clean'", true}});
        parse.Add({{"cmd-name", "read-csv"}});
    }

    static void Store() {
        Metrics::NameValueList context = {{"tenant", "blue"}, {"vw", L"sheet 1"}, {"shard", 3}};
        ActivityScope store("store", CustomContext(std::move(context)), {{"table", "orders"}});
        Pass(4'000);
        {
            ActivityScope quota("quota", Traits(TraceType::Untracked));
            Pass(50);
            quota.Cancel({{"reason", "quota exceeded"}});
        }
        try {
            const ActivityScope write("write");
            Pass(900);
            throw std::runtime_error("disk full");
        } catch (const std::runtime_error&) {
            Pass(100);
        }
    }

    // On another thread, in a metrics context that is a child of this thread's.
    void Index() {
        ActivityScope dispatch("dispatch");
        Pass(1'000);
        const tarn::ThreadContextPropagator propagator;
        const uint64 childContext = Metrics::Context::Create(false);

        tarn::test::OnAnotherThread([&] {
            m_workersThread = TSystem::ThreadID();
            Metrics::Context context(0, childContext);
            context.OpenScope();
            ActivityScope index("index",
                                CustomContext(Metrics::NameValueList()),
                                Traits(),
                                {{"worker", 1}},
                                {propagator.GetContext(), false});
            Pass(3'000);
            AllocateAndFree(4, 4);
            const ActivityScope sort("sort");
            Pass(2'000);
            ContextAttributesUtils::Set({{"vw", "sheet 2"}});
        });
        dispatch.Add({{"workers", 1}});
    }

    uint64 m_workersThread = 0;
};

class GoldenScenarioTest : public tarn::test::ScenarioHost {
protected:
    void SetUp() override {
        // Supplements carry local times.
        const char* const zone = std::getenv("TZ");
        m_zone = zone == nullptr ? std::nullopt : std::optional<std::string>(zone);
        setenv("TZ", "UTC", 1);
        tzset();

        s_microseconds = 0;
        Begin(ReadStandingClock);
        OptTarn::SetIsTarnEnabled(true);
        OptTarn::SetIsTarnPlatforms(true);
        OptTarn::SetIsServer(true);
        OptTarn::SetIsUnitTest(true);
        OptTarn::SetServerEnvironment(u"staging");
    }

    void TearDown() override {
        if (m_zone) {
            setenv("TZ", m_zone->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    /// Runs the work in a root context with a monitor, and returns the lines.
    std::vector<std::string> LinesOfAnImport() {
        uint64 workersThread = 0;
        const std::vector<std::string> lines =
            LinesOf([&](IMetricsMonitorSink* sink) { workersThread = RunImport(sink); });
        return Normalised(lines, workersThread);
    }

    std::string TreeOfAnImport() {
        return tarn::test::DrawScopeTree(
            EventsOf([](IMetricsMonitorSink* sink) { RunImport(sink); }));
    }

    /// Compares with the file of that name, byte by byte.
    static void ExpectGolden(const std::string& name, const std::vector<std::string>& lines) {
        const std::filesystem::path golden = std::filesystem::path(TARN_GOLDEN_FOLDER) / name;
        const std::vector<std::string> expected = ReadLines(golden);
        if (lines == expected) {
            return;
        }

        const std::filesystem::path actual = std::filesystem::path(testing::TempDir()) / name;
        std::ofstream out(actual, std::ios::binary);
        for (const std::string& line : lines) {
            out << line << '\n';
        }
        const std::size_t common = std::min(lines.size(), expected.size());
        const auto differing = std::mismatch(
            lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(common), expected.begin());
        const auto line = static_cast<std::size_t>(differing.first - lines.begin());
        FAIL() << "The log differs from " << golden << " first in line " << line + 1
               << "\nexpected: " << (line < expected.size() ? expected[line] : "(no more lines)")
               << "\nactual:   " << (line < lines.size() ? lines[line] : "(no more lines)")
               << "\nThe whole log is in " << actual
               << ". If the change is intended, look through all lines and copy it there.";
    }

private:
    /// Returns the id of the second thread.
    static uint64 RunImport(IMetricsMonitorSink* sink) {
        const uint64 root = Metrics::Context::Create(true);
        const RefCntPtr<MetricsMonitor> monitor(new MetricsMonitor(root));
        monitor->EnableTest(sink, new tarn::test::KnownIds);
        monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingAll);
        monitor->Register(true);

        Import import;
        {
            Metrics::Context context(0, root);
            context.OpenScope();
            import.Run();
        }

        monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingOff);
        monitor->Unregister();
        EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
        EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
        return import.WorkersThread();
    }

    static std::vector<std::string> ReadLines(const std::filesystem::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    static void Replace(std::string& text, const std::string& what, const std::string& by) {
        for (std::size_t at = text.find(what); at != std::string::npos;
             at = text.find(what, at + by.size())) {
            text.replace(at, what.size(), by);
        }
    }

    /// 8-4-4-4-12 upper-case digits at this place.
    static bool IsIdAt(const std::string& text, std::size_t at) {
        constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
        if (text.size() - at < form.size()) {
            return false;
        }
        for (std::size_t i = 0; i < form.size(); ++i) {
            const char unit = text[at + i];
            const bool isDigit = (unit >= '0' && unit <= '9') || (unit >= 'A' && unit <= 'F');
            if (form[i] == '-' ? unit != '-' : !isDigit) {
                return false;
            }
        }
        return true;
    }

    /// Gives each unknown id a name, in the order in which they appear.
    static void NameIds(std::string& line, std::map<std::string, std::string>& names) {
        constexpr std::size_t length = 36;
        for (std::size_t at = 0; at < line.size(); ++at) {
            if (IsIdAt(line, at) && line.compare(at, 24, "00000000-0000-4000-8000-") != 0) {
                const std::string name = "<id-" + std::to_string(names.size() + 1) + ">";
                line.replace(
                    at, length, names.try_emplace(line.substr(at, length), name).first->second);
            }
        }
    }

    /// Puts names in place of what differs from run to run: the process, its two threads, the
    /// host, and random ids.
    static std::vector<std::string> Normalised(std::vector<std::string> lines,
                                               uint64 workersThread) {
        const auto field = [](const std::string& name, uint64 value) {
            return '"' + name + "\":" + std::to_string(value) + ',';
        };
        std::map<std::string, std::string> names;
        for (std::string& line : lines) {
            Replace(line, field("pid", TSystem::ProcessID()), "\"pid\":\"<process>\",");
            Replace(line, field("tid", TSystem::ThreadID()), "\"tid\":\"<main>\",");
            Replace(line, field("tid", workersThread), "\"tid\":\"<worker>\",");
            Replace(line,
                    "\"host\":\"" + OptTarn::GetHostName().ToUtf8() + "\"",
                    "\"host\":\"<host>\"");
            NameIds(line, names);
        }
        return lines;
    }

    std::optional<std::string> m_zone;
};

TEST_F(GoldenScenarioTest, AnImportIsLoggedAsInTheGoldenFile) {
    ExpectGolden("import.jsonl", LinesOfAnImport());
}

TEST_F(GoldenScenarioTest, AnImportAmongForegroundContextsIsLoggedAsInTheGoldenFile) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    ExpectGolden("import-foreground.jsonl", LinesOfAnImport());
}

TEST_F(GoldenScenarioTest, AnImportWithTransparentScopesLoggedIsAsInTheGoldenFile) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    OptTarn::SetShouldLogTransparent(true);
    OptTarn::SetIsServer(false);
    OptTarn::SetDefaultSiteNameGet(u"home");

    ExpectGolden("import-transparent.jsonl", LinesOfAnImport());
}

TEST_F(GoldenScenarioTest, AnImportWithSomeScopesOffIsAsInTheGoldenFile) {
    tarn::TarnSettings::GetInstance().SetOffs({"parse", "index", "write"});
    OptTarn::SetIsTarnPlatforms(false);

    ExpectGolden("import-offs.jsonl", LinesOfAnImport());
}

TEST_F(GoldenScenarioTest, TheTreeOfAnImportIsTheSameWithForegroundContextsAndWithout) {
    const std::string expected =
        "import\n"
        "  parse\n"
        "    lines\n"
        "  store\n"
        "    quota: early-termination\n"
        "    write: early-termination\n"
        "  dispatch\n"
        "    index\n"
        "      sort\n";

    EXPECT_EQ(TreeOfAnImport(), expected);

    OptTarn::SetIsForegroundThreadContextEnabled(true);
    EXPECT_EQ(TreeOfAnImport(), expected);
}

}  // namespace
