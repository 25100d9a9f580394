#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <system_error>

namespace tarn::test {

/// An empty folder for the time of a test, unless the test wants to keep it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string path = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder");
        }
        m_path = path;
    }

    ~TemporaryFolder() {
        if (m_isKept) {
            return;
        }
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string PathOf(const std::string& name) const { return (m_path / name).string(); }

    const std::filesystem::path& Path() const { return m_path; }

    void Keep() { m_isKept = true; }

private:
    std::filesystem::path m_path;
    bool m_isKept = false;
};

}  // namespace tarn::test
