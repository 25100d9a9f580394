#include "output/OutputFile.h"

#include "LogFixture.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

class OutputFileTest : public LogFixture {
protected:
    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::size_t FileCount() const {
        const std::filesystem::directory_iterator files(
            std::filesystem::path(PathOf("x")).parent_path());
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }
};

TEST_F(OutputFileTest, AFileIsReplacedWhenAllHasBeenWritten) {
    const std::string path = Write("out", "old");
    OutputFile file(path);

    file.Stream() << "new" << std::string(200'000, 'x');
    EXPECT_EQ(Read(path), "old");
    file.Commit();

    EXPECT_EQ(Read(path), "new" + std::string(200'000, 'x'));
    EXPECT_EQ(FileCount(), 1U);
}

TEST_F(OutputFileTest, WithoutACommitTheOldFileStaysAndNothingElse) {
    const std::string path = Write("out", "old");
    {
        OutputFile file(path);
        file.Stream() << std::string(200'000, 'x');
    }

    EXPECT_EQ(Read(path), "old");
    EXPECT_EQ(FileCount(), 1U);
}

TEST_F(OutputFileTest, ALinkStaysALink) {
    const std::string path = Write("out", "old");
    std::filesystem::create_symlink(path, PathOf("link"));
    OutputFile file(PathOf("link"));

    file.Stream() << "new";
    file.Commit();

    EXPECT_TRUE(std::filesystem::is_symlink(PathOf("link")));
    EXPECT_EQ(Read(path), "new");
}

TEST_F(OutputFileTest, WhatIsNoFileIsWrittenInPlace) {
    OutputFile file("/dev/null");
    file.Stream() << "x";
    EXPECT_NO_THROW(file.Commit());

    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(OutputFileTest, AFullDiskIsReported) {
    OutputFile file("/dev/full");
    file.Stream() << "x";

    EXPECT_THROW(file.Commit(), std::system_error);
}

TEST_F(OutputFileTest, AFolderThatIsNotThereIsReported) {
    EXPECT_THROW(OutputFile(PathOf("none/out")), std::system_error);
}

}  // namespace
}  // namespace tarnview
