#include "LogFixture.h"

#include "read/Timestamp.h"

#include <cstdlib>
#include <fstream>
#include <iomanip>

namespace tarnview {

namespace {

std::string Seconds(int milliseconds) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << milliseconds / 1e3;
    return text.str();
}

}  // namespace

std::string LineText::ToString() const {
    const Microseconds start = *ParseTimestamp("2026-03-01T10:00:00Z");
    std::ostringstream text;
    text << R"({"time":")"
         << FormatTimestamp(start + Microseconds{milliseconds} * 1000 + microseconds)
         << R"(","severity":"info","event":")" << phase << '-' << name << R"(","pid":)" << process
         << R"(,"tid":)" << thread << R"(,"session":"-","request":"r","user":")" << user
         << R"(","site":"-","environment":{},"activity":{"depth":)" << depth;
    if (phase == "end") {
        text << R"(,"elapsed":)" << Seconds(elapsed) << R"(,"exclusive":)" << Seconds(exclusive);
    }
    text << R"(,"id":")" << id << R"(","name":")" << name << '"';
    if (depth == 0) {
        text << R"(,"req-desc":"-")";
    }
    if (phase == "end") {
        if (!resources.empty()) {
            text << R"(,"res":)" << resources;
        }
        text << R"(,"rk":")" << result << '"';
    }
    if (!root.empty()) {
        text << R"(,"root":")" << root << '"';
    }
    if (phase == "end") {
        text << R"(,"rv":{})";
    }
    if (!sponsor.empty()) {
        text << R"(,"sponsor":")" << sponsor << '"';
    }
    text << R"(,"type":")" << phase << R"("},"attributes":{"vw":"-","wb":"-"},"body":)" << body
         << '}';
    return text.str();
}

LogFixture::LogFixture() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tarnview-XXXXXX").string();
    m_folder = mkdtemp(pattern.data());
}

LogFixture::~LogFixture() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string LogFixture::Write(const std::string& name, const std::string& text) {
    std::ofstream(PathOf(name), std::ios::binary) << text;
    return PathOf(name);
}

std::string LogFixture::Write(const std::string& name, std::initializer_list<LineText> lines) {
    std::string text;
    for (const LineText& line : lines) {
        text += line.ToString() + "\n";
    }
    return Write(name, text);
}

std::vector<std::string> LogFixture::SampleLogs() {
    return {TARNVIEW_TEST_DATA "/shop.log", TARNVIEW_TEST_DATA "/stock.log"};
}

}  // namespace tarnview
