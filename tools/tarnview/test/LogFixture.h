#pragma once

#include "commands/Context.h"

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tarnview {

/// A line of the log for tests. Everything has a value that makes the line good.
struct LineText {
    std::string phase = "begin";
    std::string name = "load";
    std::string id = "A";
    std::string sponsor{};
    std::string root{};
    int milliseconds = 0;  ///< of the time, from 2026-03-01T10:00:00Z on
    int microseconds = 0;  ///< beyond these
    int process = 1;
    int thread = 1;
    int depth = 0;
    int elapsed = 0;    ///< ms
    int exclusive = 0;  ///< ms
    std::string result = "ok";
    std::string user = "ada";
    std::string body = "{}";
    std::string resources{};  ///< JSON of "res"; empty: none

    std::string ToString() const;
};

/// Commands in a folder of their own, with what they print.
class LogFixture : public testing::Test {
public:
    ~LogFixture() override;
    LogFixture(const LogFixture&) = delete;
    LogFixture& operator=(const LogFixture&) = delete;
    LogFixture(LogFixture&&) = delete;
    LogFixture& operator=(LogFixture&&) = delete;

protected:
    LogFixture();

    /// Returns the path of the new file.
    std::string Write(const std::string& name, const std::string& text);
    std::string Write(const std::string& name, std::initializer_list<LineText> lines);

    std::string PathOf(const std::string& name) const { return (m_folder / name).string(); }

    /// The logs that come with the tests: two processes that serve one request.
    static std::vector<std::string> SampleLogs();

    Context& Streams() { return m_context; }

    std::string Output() const { return m_out.str(); }

    std::string Errors() const { return m_err.str(); }

private:
    std::filesystem::path m_folder;
    std::ostringstream m_out;
    std::ostringstream m_err;
    Context m_context{m_out, m_err, {}};
};

}  // namespace tarnview
