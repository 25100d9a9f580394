#include "read/InputFiles.h"

#include "LogFixture.h"

#include <filesystem>
#include <system_error>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;

using InputFilesTest = LogFixture;

TEST_F(InputFilesTest, FullFilesAreReadBeforeTheCurrentOneTheOldestFirst) {
    const std::string current = Write("a.log", "");
    const std::string first = Write("a.1.log", "");
    const std::string second = Write("a.2.log", "");
    Write("a.4.log", "beyond a gap");

    EXPECT_THAT(FilesToRead({current}, true), ElementsAre(second, first, current));
    EXPECT_THAT(FilesToRead({current}, false), ElementsAre(current));
}

TEST_F(InputFilesTest, FilesThatAreNamedInAnyOrderAreReadInTheRightOne) {
    const std::string current = Write("a.log", "");
    const std::string first = Write("a.1.log", "");
    const std::string other = Write("b.log", "");
    const std::string tenth = Write("a.10.log", "");

    EXPECT_THAT(FilesToRead({first, tenth, current, other}, true),
                ElementsAre(tenth, first, current, other));
}

TEST_F(InputFilesTest, ASetWithoutAnExtensionIsASet) {
    const std::string current = Write("log", "");
    const std::string first = Write("log.1", "");

    EXPECT_THAT(FilesToRead({current}, true), ElementsAre(first, current));
}

TEST_F(InputFilesTest, AFileWithTwoNamesIsReadOnce) {
    const std::string file = Write("a.log", "");
    std::filesystem::create_symlink(file, PathOf("link"));

    EXPECT_THAT(FilesToRead({file, PathOf("link"), file}, true), ElementsAre(file));
}

TEST_F(InputFilesTest, AFileThatIsNotThereIsKeptAndFailsWhenOpened) {
    EXPECT_THAT(FilesToRead({PathOf("none")}, true), ElementsAre(PathOf("none")));
    EXPECT_THROW(InputFile(PathOf("none")), std::system_error);
}

TEST_F(InputFilesTest, AFolderCannotBeRead) {
    std::filesystem::create_directory(PathOf("folder"));

    EXPECT_THROW(InputFile(PathOf("folder")), std::system_error);
}

TEST_F(InputFilesTest, TheTotalSizeIsKnownForFilesOnly) {
    const std::string one = Write("a.log", "12345");
    const std::string two = Write("b.log", "678");

    EXPECT_EQ(TotalSize({one, two}), 8U);
    EXPECT_EQ(TotalSize({one, PathOf("none")}), 0U);
}

}  // namespace
}  // namespace tarnview
