#include "StatusFile.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {

void PrintTo(const Dependency& dependency, std::ostream* out) {
    *out << dependency.name << " (kind " << static_cast<int>(dependency.kind) << ", group "
         << dependency.group << ")";
}

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr const char* minimal = "Package: p\nVersion: 1\nArchitecture: all\n";

StatusFile Parse(const std::string& text) {
    return ParseStatusFile(text, "status");
}

std::string ErrorOf(const std::string& text) {
    try {
        Parse(text);
    } catch (const StatusFileError& error) {
        return error.what();
    }
    return "no error";
}

auto Needs(DependencyKind kind, int group, const std::string& name) {
    return AllOf(Field(&Dependency::kind, kind),
                 Field(&Dependency::group, group),
                 Field(&Dependency::name, name));
}

TEST(StatusFileTest, FieldsOfAStanzaBecomeAPackage) {
    const StatusFile file = Parse(
        "Package: zap\nStatus: install ok installed\nSection: utils\nInstalled-Size: 42\n"
        "Version: 1:2.0~rc1-3\nArchitecture: amd64\nDescription: packs files\n");

    ASSERT_EQ(file.packages.size(), 1U);
    const Package& package = file.packages.front();
    EXPECT_EQ(package.name, "zap");
    EXPECT_EQ(package.version, "1:2.0~rc1-3");
    EXPECT_EQ(package.architecture, "amd64");
    EXPECT_EQ(package.section, "utils");
    EXPECT_EQ(package.installedKib, 42);
    EXPECT_EQ(package.summary, "packs files");
    EXPECT_THAT(package.dependencies, IsEmpty());
}

TEST(StatusFileTest, ContinuationLinesMakeTheDescriptionAndALoneDotAnEmptyLine) {
    const StatusFile file =
        Parse(std::string(minimal) + "Description: short\n first\n .\n  second\n");

    EXPECT_EQ(file.packages.front().summary, "short");
    EXPECT_EQ(file.packages.front().description, "first\n\n second\n");
}

TEST(StatusFileTest, StanzasAreParagraphsHoweverManyBlankLinesStandBetween) {
    const std::string other = "Package: q\nVersion: 1\nArchitecture: all";

    const StatusFile file = Parse("\n\n" + std::string(minimal) + "\n \t\n\n" + other);

    EXPECT_THAT(file.packages, ElementsAre(Field(&Package::name, "p"), Field(&Package::name, "q")));
}

TEST(StatusFileTest, LinesMayEndInCarriageReturnAndLineFeed) {
    const StatusFile file = Parse(
        "Package: p\r\nVersion: 1\r\nArchitecture: all\r\n\r\nPackage: q\r\n"
        "Version: 2\r\nArchitecture: all\r\n");

    EXPECT_THAT(file.packages,
                ElementsAre(Field(&Package::version, "1"), Field(&Package::version, "2")));
}

TEST(StatusFileTest, FieldNamesAreReadInAnyLetterCase) {
    const StatusFile file = Parse("PACKAGE: p\nversion: 1\nArchiTecture: all\n");

    EXPECT_EQ(file.packages.front().name, "p");
}

TEST(StatusFileTest, PackagesThatAreNotInstalledAreCountedAndNeedNoVersion) {
    const StatusFile file =
        Parse(std::string(minimal) + "\nPackage: gone\nStatus: deinstall ok config-files\n" +
              "\nPackage: half\nStatus: install ok half-installed\n");

    EXPECT_EQ(file.packages.size(), 1U);
    EXPECT_EQ(file.notInstalled, 2U);
}

TEST(StatusFileTest, DependenciesKeepTheirKindAndTheirAlternatives) {
    const StatusFile file = Parse(std::string(minimal) +
                                  "Depends: a (>= 1.0), b | c:any [amd64] |\td <!nocheck>,\n e,\n"
                                  "Pre-Depends: f\nRecommends: g(=1)\n");

    EXPECT_THAT(file.packages.front().dependencies,
                ElementsAre(Needs(DependencyKind::PreDepends, 0, "f"),
                            Needs(DependencyKind::Depends, 1, "a"),
                            Needs(DependencyKind::Depends, 2, "b"),
                            Needs(DependencyKind::Depends, 2, "c"),
                            Needs(DependencyKind::Depends, 2, "d"),
                            Needs(DependencyKind::Depends, 3, "e"),
                            Needs(DependencyKind::Recommends, 4, "g")));
}

TEST(StatusFileTest, TextThatIsNotUtf8IsReadAsLatin1) {
    const StatusFile file = Parse(std::string(minimal) + "Description: caf\xE9 na\xC3\xAFve\n");

    EXPECT_EQ(file.packages.front().summary, "caf\xC3\xA9 na\xC3\x83\xC2\xAFve");
}

TEST(StatusFileTest, Utf8IsKept) {
    const StatusFile file = Parse(std::string(minimal) + "Description: na\xC3\xAFve\n");

    EXPECT_EQ(file.packages.front().summary, "na\xC3\xAFve");
}

TEST(StatusFileTest, ErrorsNameTheLine) {
    EXPECT_EQ(ErrorOf("Package: p\nnonsense\n"),
              "status:2: neither 'Field: value' nor a continuation line");
    EXPECT_EQ(ErrorOf("Package: p\n: value\n"),
              "status:2: neither 'Field: value' nor a continuation line");
    EXPECT_EQ(ErrorOf("Package: p\nTwo words: value\n"),
              "status:2: neither 'Field: value' nor a continuation line");
    EXPECT_EQ(ErrorOf("\n continued\n"), "status:2: a continuation line without a field before it");
    EXPECT_EQ(ErrorOf("Package: p\npackage: q\n"),
              "status:2: field 'package' appears twice in one stanza");
    EXPECT_EQ(ErrorOf(std::string("Package: p\nVersion: 1") + '\0' + "2\n"),
              "status:2: a NUL byte");
    EXPECT_EQ(ErrorOf("\nVersion: 1\nPackage: p\n"),
              "status:2: the stanza has no field 'Architecture'");
    EXPECT_EQ(ErrorOf("Package:\nVersion: 1\nArchitecture: all\n"),
              "status:1: field 'Package' is empty");
    EXPECT_EQ(ErrorOf(std::string(minimal) + "Installed-Size: 12k\n"),
              "status:4: 'Installed-Size' is no number of KiB");
    EXPECT_EQ(ErrorOf(std::string(minimal) + "Installed-Size: -1\n"),
              "status:4: 'Installed-Size' is no number of KiB");
    EXPECT_EQ(ErrorOf(std::string(minimal) + "Installed-Size: 99999999999999999999\n"),
              "status:4: 'Installed-Size' is no number of KiB");
    EXPECT_EQ(ErrorOf(std::string(minimal) + "Depends: a, (>= 1)\n"),
              "status:4: field 'Depends' has a dependency without a name");
    EXPECT_EQ(ErrorOf(std::string(minimal) + "Depends: a |  | b\n"),
              "status:4: field 'Depends' has a dependency without a name");
}

TEST(StatusFileTest, AFileWithoutAnInstalledPackageIsAnError) {
    EXPECT_EQ(ErrorOf(""), "status: holds no installed package");
    EXPECT_EQ(ErrorOf("\n \n"), "status: holds no installed package");
    EXPECT_EQ(ErrorOf("Package: p\nStatus: purge ok not-installed\n"),
              "status: holds no installed package");
}

TEST(StatusFileTest, AMissingFileAndADirectoryAreErrorsThatNameThem) {
    EXPECT_THROW(
        {
            try {
                ReadStatusFile("/nowhere/status");
            } catch (const StatusFileError& error) {
                EXPECT_STREQ(error.what(),
                             "/nowhere/status: cannot be opened: No such file or directory");
                throw;
            }
        },
        StatusFileError);
    EXPECT_THROW(
        {
            try {
                ReadStatusFile("/");
            } catch (const StatusFileError& error) {
                EXPECT_STREQ(error.what(), "/: is a directory");
                throw;
            }
        },
        StatusFileError);
}

TEST(StatusFileTest, EveryPrefixOfAFileIsReadOrRefusedButNeverBreaksTheParser) {
    std::string text = std::string(minimal) + "Installed-Size: 7\nDepends: a | b, c\n" +
                       "Description: x\n more\n\nPackage: q\nVersion: 1\nArchitecture: all\n";

    std::size_t readable = 0;
    for (std::size_t length = 0; length <= text.size(); ++length) {
        try {
            readable += Parse(text.substr(0, length)).packages.size();
        } catch (const StatusFileError&) {
            continue;
        }
    }

    EXPECT_GT(readable, 0U);
}

}  // namespace

}  // namespace packagesearch
