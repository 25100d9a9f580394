#pragma once

#include "CorePlatformTestSupport.h"

#include "cvlcoreplatform/host/JsonLines.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace LogTest {

/// A log file in a folder of its own.
class LogFileTest : public LoggerTest {
protected:
    const TemporaryFolder m_folder;
    const std::string m_path = m_folder.PathOf("a.log");

    std::string PathOfFullFile(int number) const {
        return m_folder.PathOf("a." + std::to_string(number) + ".log");
    }

    static void LogTo(const std::string& path, TLog::LogFileLimits limits = {}) {
        TLog::ReplaceBackEnd(TLog::MakeJsonFileBackEnd(path, limits));
    }

    /// The texts of the messages in a file, or the line itself where it is no message.
    static std::vector<std::string> MessagesIn(const std::string& path) {
        std::vector<std::string> messages;
        for (const std::string& line : LinesIn(ContentOf(path))) {
            const auto json = nlohmann::json::parse(line, nullptr, false);
            messages.push_back(json.is_object() ? json["message"].get<std::string>()
                                                : "<broken>" + line);
        }
        return messages;
    }

    /// The length of a line with a message of `length` characters and its line end.
    std::size_t LineLength(std::size_t length) {
        const std::string path = m_folder.PathOf("measure");
        TLog::ReplaceBackEnd(TLog::MakeJsonFileBackEnd(path));
        LogMessage(std::string(length, 'x'));
        TLog::ReplaceBackEnd(nullptr);
        const std::size_t size = ContentOf(path).size();
        std::filesystem::remove(path);
        return size;
    }

    std::vector<std::string> FilesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

/// The message that a log holds in the place of lines that are lost.
inline std::string Missing(int lines) {
    return "Missing in this log: lines that could not be written: " + std::to_string(lines);
}

/// For children that are expected to complain.
inline void SilenceStandardError() {
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
}

/// Lets files grow to `bytes` at most, as a full disk does: the write that goes beyond is cut
/// short, and the next one fails. For the whole process, so only in a child.
inline void LimitFileSize(std::size_t bytes) {
    // Otherwise the kernel ends the process.
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
}

}  // namespace LogTest
